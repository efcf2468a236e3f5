#include "tools/text/Input.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace Text {

namespace {

/// A directory opens, and fails when it is read.
std::string
allOf( std::istream & in ) {
   std::string text;
   for ( char piece[ 65536 ]; in; ) {
      in.read( piece, sizeof piece );
      text.append( piece, static_cast< std::size_t >( in.gcount() ) );
   }
   if ( in.bad() ) {
      throw std::runtime_error( std::strerror( errno ) );
   }
   return text;
}

}

std::string
contentOf( const std::string & file ) {
   static bool inputTaken = false;
   if ( file == "-" ) {
      if ( inputTaken ) {
         throw std::runtime_error( "standard input has been read already" );
      }
      inputTaken = true;
      return allOf( std::cin );
   }
   std::ifstream in( file, std::ios::binary );
   if ( !in.is_open() ) {
      throw std::runtime_error( std::strerror( errno ) );
   }
   return allOf( in );
}

}
