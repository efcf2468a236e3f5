// Tables, laid out by libsmartcols.

#include "tools/text/Table.h"

#include "tools/text/Plain.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
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
   const Utf8 utf8;
   const std::unique_ptr< libscols_table, decltype( &scols_unref_table ) > table(
      scols_new_table(), &scols_unref_table );
   scols_table_set_termforce( table.get(), SCOLS_TERMFORCE_ALWAYS );
   scols_table_enable_minout( table.get(), 1 );  // no spaces after an empty last cell
   scols_table_set_termwidth( table.get(), width ? width : 1'000'000 );
   for ( const std::string & column : columns_ ) {
      const bool last = &column == &columns_.back();
      scols_table_new_column( table.get(), column.c_str(), 0, last ? SCOLS_FL_WRAP : 0 );
   }
   for ( const auto & row : rows_ ) {
      libscols_line * const line = scols_table_new_line( table.get(), nullptr );
      for ( std::size_t i = 0; i < row.size(); ++i ) {
         scols_line_set_data( line, i, row[ i ].c_str() );
      }
   }
   char * text = nullptr;
   if ( scols_print_table_to_string( table.get(), &text ) == 0 && text ) {
      out << text << "\n";
   }
   std::free( text );
}

}
