// Tables, laid out by libsmartcols; where the last column breaks is decided here.

#include "tools/text/Table.h"

#include "tools/text/Plain.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <libsmartcols/libsmartcols.h>
#include <memory>
#include <ostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Text {

namespace {

/// Text is UTF-8 while this lives, whatever the user's locale: names appear as they are.
class Utf8 {
 public:
   Utf8() : locale_( newlocale( LC_CTYPE_MASK, "C.UTF-8", nullptr ) ) {
      old_ = uselocale( locale_ );
   }
   ~Utf8() {
      uselocale( old_ );
      freelocale( locale_ );
   }
   Utf8( const Utf8 & ) = delete;
   Utf8 & operator=( const Utf8 & ) = delete;

 private:
   locale_t locale_, old_;
};

/// Columns of a terminal. REQUIRES: text is UTF-8 now.
std::size_t
columnsOf( const std::string & text ) {
   std::wstring letters( text.size(), L' ' );
   const std::size_t count = std::mbstowcs( letters.data(), text.c_str(), letters.size() );
   const int width = count > text.size() ? -1 : wcswidth( letters.data(), count );
   return width < 0 ? text.size() : static_cast< std::size_t >( width );
}

/// The text in lines of at most that many columns, as far as it has places to break at: behind
/// commas; where that does not do, at spaces.
std::string
wrapped( const std::string & text, std::size_t width, const char * breaks = ", " ) {
   std::string lines, line;
   for ( std::size_t at = 0, end; at < text.size(); at = end ) {
      const std::size_t found = text.find( breaks, at );
      end = found == text.npos ? text.size() : found + std::strlen( breaks );
      std::string piece = text.substr( at, end - at );
      if ( !line.empty()
           && columnsOf( line ) + columnsOf( piece ) > width + piece.ends_with( ' ' ) ) {
         lines += line.substr( 0, line.find_last_not_of( ' ' ) + 1 ) + "\n";
         line.clear();
      }
      if ( *breaks == ',' && columnsOf( piece ) > width + piece.ends_with( ' ' ) ) {
         piece = wrapped( piece, width, " " );
         lines += piece.substr( 0, piece.rfind( '\n' ) + 1 );
         piece.erase( 0, piece.rfind( '\n' ) + 1 );
      }
      line += piece;
   }
   return lines + line;
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

/// In columns of a terminal, of all cells and the head. REQUIRES: text is UTF-8 now.
std::size_t
Table::widthOf( std::size_t column ) const {
   std::size_t most = columnsOf( columns_[ column ] );
   for ( const auto & row : rows_ ) {
      most = std::max( most, columnsOf( row[ column ] ) );
   }
   return most;
}

void
Table::print( std::ostream & out, unsigned width ) const {
   const Utf8 utf8;
   const std::unique_ptr< libscols_table, decltype( &scols_unref_table ) > table(
      scols_new_table(), &scols_unref_table );
   scols_table_set_termforce( table.get(), SCOLS_TERMFORCE_ALWAYS );
   scols_table_enable_minout( table.get(), 1 );  // no spaces after an empty last cell
   scols_table_set_termwidth( table.get(), 1'000'000 );
   std::size_t before = 0;  // columns to the left of the last one
   for ( std::size_t i = 0; i < columns_.size(); ++i ) {
      const bool last = i + 1 == columns_.size();
      libscols_column * const column =
         scols_table_new_column( table.get(), columns_[ i ].c_str(), 0, last ? SCOLS_FL_WRAP : 0 );
      if ( last ) {
         scols_column_set_safechars( column, "\n" );
         scols_column_set_wrapfunc( column, scols_wrapnl_chunksize, scols_wrapnl_nextchunk,
                                    nullptr );
      } else {
         before += widthOf( i ) + 1;
      }
   }
   const std::size_t room = width == 0 ? 1'000'000 : width > before ? width - before : 1;
   for ( const auto & row : rows_ ) {
      libscols_line * const line = scols_table_new_line( table.get(), nullptr );
      for ( std::size_t i = 0; i < row.size(); ++i ) {
         const bool last = i + 1 == columns_.size();
         scols_line_set_data( line, i,
                              last ? wrapped( row[ i ], room ).c_str() : row[ i ].c_str() );
      }
   }
   char * text = nullptr;
   if ( scols_print_table_to_string( table.get(), &text ) == 0 && text ) {
      out << text << "\n";
   }
   std::free( text );
}

}
