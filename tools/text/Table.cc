// Tables for a terminal. A cell is as wide as it has characters of UTF-8; the last column takes
// what the others leave, and is broken between words.

#include "tools/text/Table.h"

#include "tools/text/Plain.h"

#include <algorithm>
#include <ostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Text {

namespace {

/// Narrower than this, a column is not worth breaking.
constexpr std::size_t leastWidth = 16;

std::size_t
widthOf( std::string_view text ) {
   return static_cast< std::size_t >(
      std::count_if( text.begin(), text.end(), []( char c ) { return ( c & 0xc0 ) != 0x80; } ) );
}

/// The text in lines of at most `width`, words that are longer by themselves; 0: one line.
std::vector< std::string >
wrapped( const std::string & text, std::size_t width ) {
   std::vector< std::string > lines( 1 );
   std::size_t begin = 0;
   while ( width && begin < text.size() ) {
      const std::size_t end = std::min( text.find( ' ', begin ), text.size() );
      const std::string word = text.substr( begin, end - begin );
      if ( !lines.back().empty() && widthOf( lines.back() ) + 1 + widthOf( word ) > width ) {
         lines.emplace_back();
      }
      lines.back() += lines.back().empty() ? word : " " + word;
      begin = end + 1;
   }
   return width ? lines : std::vector< std::string >{ text };
}

}

unsigned
terminalWidth() {
   winsize size{};
   return ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 ? size.ws_col : 0;
}

void
Table::row( std::vector< std::string > cells ) {
   std::transform( cells.begin(), cells.end(), cells.begin(), plain );
   rows_.push_back( std::move( cells ) );
}

void
Table::print( std::ostream & out, unsigned width ) const {
   const std::size_t last = rows_.front().size() - 1;
   std::vector< std::size_t > widths( last );
   std::size_t left = 0;
   for ( std::size_t i = 0; i < last; ++i ) {
      for ( const auto & row : rows_ ) {
         widths[ i ] = std::max( widths[ i ], widthOf( row[ i ] ) );
      }
      left += widths[ i ] + 1;
   }
   const std::size_t room = width >= left + leastWidth ? width - left : 0;
   for ( const auto & row : rows_ ) {
      std::string line;
      for ( std::size_t i = 0; i < last; ++i ) {
         line += row[ i ] + std::string( widths[ i ] - widthOf( row[ i ] ) + 1, ' ' );
      }
      for ( const std::string & piece : wrapped( row[ last ], room ) ) {
         line += piece;
         out << line.substr( 0, line.find_last_not_of( ' ' ) + 1 ) << "\n";
         line.assign( left, ' ' );
      }
   }
}

}
