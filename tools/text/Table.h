#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace Text {

/// Columns of the terminal that standard output is; 0 where it is none.
unsigned terminalWidth();

/// A table for a person: columns as wide as their texts.
class Table {
 public:
   explicit Table( std::vector< std::string > columns ) : columns_( std::move( columns ) ) {}

   /// REQUIRES: one cell a column.
   void row( std::vector< std::string > cells );
   /// `width`: of the terminal, to which the last column is broken, behind commas where that does;
   /// 0: no limit.
   void print( std::ostream & out, unsigned width = 0 ) const;

 private:
   std::size_t widthOf( std::size_t column ) const;

   std::vector< std::string > columns_;
   std::vector< std::vector< std::string > > rows_;
};

}
