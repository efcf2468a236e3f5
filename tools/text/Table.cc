// Tables, laid out by libsmartcols.

#include "tools/text/Table.h"

#include <cstdlib>
#include <libsmartcols/libsmartcols.h>
#include <memory>
#include <ostream>

namespace Text {

void
Table::print( std::ostream & out, unsigned width ) const {
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
