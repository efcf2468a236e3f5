#include "tools/igpfeed/FeedDatabase.h"

#include "tools/text/Plain.h"

#include <iostream>
#include <unistd.h>

namespace IgpFeed {

namespace {

constexpr Lum::Seconds untilNotice = 2;  // before a person is told why nothing happens

/// All that a source writes. Of the announcements each source has its own.
std::vector< std::string >
writtenBy( const std::string & source ) {
   if ( source == "interfaces" ) {
      return { "interface/status/eth/phy/all", "interface/status/eth/lag" };
   }
   std::vector< std::string > paths{ "routing/" + source + "/topodb",
                                     "routing/topoDbExport/igpfeed-" + source + "-*" };
   if ( source == "isis" ) {
      paths.insert( paths.end(), { "routing/isis/adjacency", "segmentrouting/isis" } );
   }
   return paths;
}

Redis::Replica::Settings
settingsOf( const Redis::Url & url, const std::string & source ) {
   Redis::Replica::Settings settings{ url, "igpfeed " + source + " (process "
                                              + std::to_string( getpid() ) + ")" };
   settings.concerns = [ paths = writtenBy( source ) ]( const std::string & key ) {
      return Redis::isCovered( paths, Redis::pathOf( key ) );
   };
   return settings;
}

}

FeedDatabase::FeedDatabase( Lum::ActivityLoop & loop, const Redis::Url & url,
                            const std::string & source, Handlers handlers )
   : loop_( loop ),
     source_( source ),
     handlers_( std::move( handlers ) ),
     state_( loop, settingsOf( url, source ),
             { [] {},
               [ this, url = url.text ]( const std::string & why, bool isHopeless ) {
                  if ( isHopeless ) {
                     handlers_.failed( url + ": " + why );
                  }
               },
               [ this ]( const std::string & line ) { tell( line ); } } ) {
   const auto failed = [ this ]( const std::string & why ) { handlers_.failed( why ); };
   state_.replica().leaseIs( writtenBy( source ), true,
                             { [ this ] { handlers_.granted( state_.view() ); }, failed, failed } );
   notice_ = loop_.timerIs( loop_.now() + untilNotice, [ this ] {
      notice_ = {};
      if ( const auto now = replica().status(); !now.holder.empty() ) {
         tell( "waiting: " + now.holder + " writes" );
      }
   } );
}

void
FeedDatabase::tell( const std::string & line ) const {
   std::cerr << "igpfeed: " << source_ << ": " << Text::plain( line ) << std::endl;
}

}
