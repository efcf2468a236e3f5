// A temporary file takes the place of the last one. Once the first is written, a later one that
// cannot be, as on a full disk, is tried again at its next time.

#include "tools/agentrunner/MetricsFile.h"

#include "tools/text/Output.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

constexpr Lum::Seconds writtenEvery = 15;

}

MetricsFile::MetricsFile( Lum::ActivityLoop & loop, std::string path,
                          std::function< std::string() > text )
   : loop_( loop ),
     path_( std::move( path ) ),
     freshPath_( path_ + ".tmp" ),
     text_( std::move( text ) ) {
   if ( path_.empty() ) {
      return;
   }
   Text::checkReplaceable( path_ );
   Text::checkReplaceable( freshPath_ );
   if ( !write() ) {
      throw std::runtime_error( path_ + ": the metrics cannot be written" );
   }
   writeAgain();
}

MetricsFile::~MetricsFile() {
   loop_.timerDel( timer_ );
}

bool
MetricsFile::write() const {
   std::ofstream out( freshPath_, std::ios::trunc );
   out << text_();
   out.close();
   return out && std::rename( freshPath_.c_str(), path_.c_str() ) == 0;
}

void
MetricsFile::writeAgain() {
   timer_ = loop_.timerIs( loop_.deadlineAfter( writtenEvery ), [ this ] {
      write();
      writeAgain();
   } );
}
