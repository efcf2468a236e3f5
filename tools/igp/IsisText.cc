// A database is read packet by packet. A line with a known label must have a value of its kind; a
// line with any other label is passed over, since each release adds some. What a router floods may
// be any number, so an odd one costs that number alone.

#include "tools/igp/IsisText.h"

#include "tools/igp/TeText.h"

#include <algorithm>

namespace Igp {

namespace {

using Routing::Isis::SystemId;

class IsisReader {
 public:
   IsisReader( std::string_view text, const std::string & name, IsisCapture & capture )
      : lines_( text, name ),
        name_( name ),
        capture_( capture ) {}

   void readAll();

 private:
   enum class Section { none, database, hostnames, neighbors, interfaces };

   void readTop();
   bool readLspHeader();
   void endDatabase( std::string_view count );
   void readHostname();
   void readAdjacency();
   void readInterface();
   void readInLsp();
   bool readIdentity();
   bool readReachability();
   void readNeighbor( std::string_view text, bool ipv6Topology, bool narrow );
   void readPrefix( std::string_view text, bool ipv6Topology, bool narrow );
   bool readLinkAddress();
   void readLinkAttribute();
   Lsp & lsp() { return capture_.lsps.back(); }
   std::string ownerText() { return "LSP of " + lsp().owner; }

   CaptureLines lines_;
   const std::string & name_;
   IsisCapture & capture_;
   Section section_ = Section::none;
   std::string area_;
   std::uint32_t level_ = 2;
   std::size_t inSection_ = 0;
   bool openDatabase_ = false;  ///< its closing line with the count is still to come
   LinkEnd * link_ = nullptr;   ///< the attributes that follow are its
   IsisAdjacency adjacency_;
   bool listsAddresses_ = false;
};

void
IsisReader::readAll() {
   while ( lines_.next() ) {
      if ( lines_.text().empty() ) {
         continue;
      }
      if ( section_ == Section::database && lines_.indent() == 2 ) {
         link_ = nullptr;
      }
      if ( lines_.indent() == 0 ) {
         readTop();
      } else if ( section_ == Section::database ) {
         if ( lines_.text().ends_with( " LSPs" ) && lines_.indent() == 4 ) {
            endDatabase( lines_.text() );
         } else if ( inSection_ > 0 ) {
            readInLsp();
         }
      } else if ( section_ == Section::hostnames ) {
         readHostname();
      } else if ( section_ == Section::interfaces || lines_.startsWith( "Interface: " ) ) {
         readInterface();
      } else {
         readAdjacency();
      }
   }
   if ( openDatabase_ ) {
      throw CaptureError( name_ + ": the database of level " + std::to_string( level_ )
                          + " ends before its count of LSPs" );
   }
}

void
IsisReader::readTop() {
   link_ = nullptr;
   if ( const auto area = lines_.after( "Area " ) ) {
      area_ = std::string( area->substr( 0, area->rfind( ':' ) ) );
      section_ = Section::neighbors;
   } else if ( const auto level = lines_.after( "IS-IS Level-" ) ) {
      if ( openDatabase_ ) {
         lines_.fail( "the count of LSPs before the next database", lines_.text() );
      }
      level_ = lines_.number( level->substr( 0, 1 ) );
      if ( level_ != 1 && level_ != 2 ) {
         lines_.fail( "level 1 or 2", *level );
      }
      section_ = Section::database;
      inSection_ = 0;
      openDatabase_ = true;
   } else if ( lines_.startsWith( "Level " ) ) {
      section_ = Section::hostnames;
   } else if ( section_ == Section::hostnames ) {
      readHostname();
   } else if ( section_ == Section::database && !readLspHeader() && openDatabase_
               && !lines_.startsWith( "LSP ID" ) ) {
      lines_.fail( "an LSP or the count of LSPs", lines_.text() );
   }
}

/// "r5.04-00   *   62   0x00000001  0x5c52    1111    0/0/0"; a hold time in brackets: expired.
bool
IsisReader::readLspHeader() {
   std::string_view rest = lines_.text();
   const std::string_view id = takeWord( rest );
   const auto dash = id.rfind( '-' );
   const auto dot = id.substr( 0, dash ).rfind( '.' );
   if ( dash == id.npos || dot == id.npos || dash != dot + 3 || id.size() != dash + 3 ) {
      return false;
   }
   Lsp lsp;
   lsp.area = area_;
   lsp.level = level_;
   lsp.owner = std::string( id.substr( 0, dot ) );
   lsp.pseudonode = lines_.number( id.substr( dot + 1, 2 ), 16 );
   lsp.fragment = lines_.number( id.substr( dash + 1 ), 16 );
   lsp.first = inSection_ == 0;
   std::string_view word = takeWord( rest );
   lsp.own = word == "*";
   if ( lsp.own ) {
      word = takeWord( rest );
   }
   lines_.number( word );  // its length
   lsp.sequence = lines_.mask( takeWord( rest ) );
   lines_.mask( takeWord( rest ) );  // its checksum
   lsp.expired = takeWord( rest ).starts_with( '(' );
   const std::string_view bits = takeWord( rest );
   if ( bits.size() != 5 ) {
      lines_.fail( "the bits ATT/P/OL", bits );
   }
   lsp.overload = bits.back() == '1';
   capture_.lsps.push_back( std::move( lsp ) );
   ++inSection_;
   return true;
}

void
IsisReader::endDatabase( std::string_view count ) {
   if ( lines_.number( takeWord( count ) ) != inSection_ ) {
      lines_.fail( "the count of the " + std::to_string( inSection_ ) + " LSPs above",
                   lines_.text() );
   }
   openDatabase_ = false;
   section_ = Section::none;
}

/// "2      0000.0000.0002 r2", or with "*" instead of the level for the router itself.
void
IsisReader::readHostname() {
   std::string_view rest = lines_.text();
   const std::string_view mark = takeWord( rest );
   const auto id = SystemId::parse( takeWord( rest ) );
   const std::string_view hostname = takeWord( rest );
   if ( !id || hostname.empty() ) {
      section_ = Section::none;
      return;
   }
   auto & ids = capture_.hostnames[ std::string( hostname ) ];
   if ( std::find( ids.begin(), ids.end(), *id ) == ids.end() ) {
      ids.push_back( *id );
   }
   if ( mark == "*" ) {
      capture_.self = *id;
   }
}

void
IsisReader::readInterface() {
   if ( const auto intf = lines_.after( "Interface: " ) ) {
      if ( lines_.indent() == 4 ) {  // of an adjacency
         readAdjacency();
         return;
      }
      section_ = Section::interfaces;
      adjacency_.intf = std::string( intf->substr( 0, intf->find( ',' ) ) );
      listsAddresses_ = false;
   } else if ( lines_.text().ends_with( ":" ) ) {
      listsAddresses_ = lines_.text().find( " Prefix" ) != std::string_view::npos;
   } else if ( listsAddresses_ ) {
      const std::string_view word = lines_.text();
      capture_.interfaces[ lines_.address( word.substr( 0, word.find( '/' ) ) ) ] = adjacency_.intf;
   }
}

void
IsisReader::readAdjacency() {
   if ( lines_.indent() == 1 ) {
      adjacency_ = { std::string( lines_.text() ), {}, {} };
      listsAddresses_ = false;
      return;
   }
   if ( const auto intf = lines_.after( "Interface: " ) ) {
      adjacency_.intf = std::string( intf->substr( 0, intf->find( ',' ) ) );
      if ( intf->find( "State: Up" ) != intf->npos ) {
         capture_.adjacencies.push_back( adjacency_ );
      } else {
         adjacency_.owner.clear();
      }
   } else if ( lines_.text().ends_with( ":" ) ) {
      listsAddresses_ = lines_.startsWith( "IPv" ) || lines_.startsWith( "Global IPv6" );
   } else if ( listsAddresses_ && lines_.indent() == 6 && !adjacency_.owner.empty()
               && !capture_.adjacencies.empty() ) {
      capture_.adjacencies.back().addresses.push_back( lines_.address( lines_.text() ) );
   }
}

void
IsisReader::readInLsp() {
   if ( lines_.indent() > 2 ) {
      if ( link_ && !readLinkAddress() ) {
         readLinkAttribute();
      }
   } else if ( !readIdentity() ) {
      readReachability();
   }
}

bool
IsisReader::readIdentity() {
   if ( const auto name = lines_.after( "Hostname: " ) ) {
      lsp().hostname = std::string( *name );
   } else if ( const auto id = lines_.after( "TE Router ID: " ) ) {
      lsp().teRouterId = lines_.address( *id );
   } else if ( const auto id6 = lines_.after( "IPv6 TE Router ID: " ) ) {
      lsp().teRouterId6 = lines_.address( *id6 );
   } else if ( const auto protocols = lines_.after( "Protocols Supported: " ) ) {
      lsp().speaksIpv4 = protocols->find( "IPv4" ) != protocols->npos;
      lsp().speaksIpv6 = protocols->find( "IPv6" ) != protocols->npos;
   } else if ( const auto topology = lines_.after( "MT Router Info: " ) ) {
      if ( topology->starts_with( "ipv6-unicast" ) ) {
         lsp().inIpv6Topology = true;
         lsp().ipv6Overload = topology->find( "Overload" ) != topology->npos;
      }
   } else {
      return false;
   }
   return true;
}

/// Multicast and management topologies are none of ours.
bool
IsisReader::readReachability() {
   const bool ipv6 = lines_.text().ends_with( " ipv6-unicast" );
   if ( lines_.startsWith( "MT " ) && !ipv6 ) {
      return false;
   }
   struct Kind {
      std::string_view label;
      void ( IsisReader::*read )( std::string_view, bool, bool );
      bool ipv6Topology, narrow;
   };
   static constexpr std::array kinds = {
      Kind{ "Extended Reachability: ", &IsisReader::readNeighbor, false, false },
      Kind{ "MT Reachability: ", &IsisReader::readNeighbor, true, false },
      Kind{ "IS Reachability: ", &IsisReader::readNeighbor, false, true },
      Kind{ "Extended IP Reachability: ", &IsisReader::readPrefix, false, false },
      Kind{ "IPv6 Reachability: ", &IsisReader::readPrefix, false, false },
      Kind{ "MT IPv6 Reachability: ", &IsisReader::readPrefix, true, false },
      Kind{ "IP Reachability: ", &IsisReader::readPrefix, false, true } };
   for ( const Kind & kind : kinds ) {
      if ( const auto text = lines_.after( kind.label ) ) {
         ( this->*kind.read )( *text, kind.ipv6Topology, kind.narrow );
         return true;
      }
   }
   return false;
}

/// "0000.0000.0005.04 (Metric: 10)"
void
IsisReader::readNeighbor( std::string_view text, bool ipv6Topology, bool narrow ) {
   const std::string_view id = takeWord( text );
   const auto dot = id.rfind( '.' );
   if ( dot == id.npos || id.size() != dot + 3 ) {
      lines_.fail( "a neighbour such as 0000.0000.0005.04", id );
   }
   Lsp::Neighbor neighbor;
   neighbor.owner = std::string( id.substr( 0, dot ) );
   neighbor.pseudonode = lines_.number( id.substr( dot + 1 ), 16 );
   neighbor.ipv6Topology = ipv6Topology;
   neighbor.narrow = narrow;
   neighbor.end.metric = lines_.number( between( text, "(Metric: ", ")" ) );
   lsp().neighbors.push_back( std::move( neighbor ) );
   link_ = &lsp().neighbors.back().end;
}

/// "10.1.1.0/24 (Metric: 10) Down". A metric above the largest of a path means: not to be used.
void
IsisReader::readPrefix( std::string_view text, bool ipv6Topology, bool narrow ) {
   constexpr std::uint32_t maxPathMetric = 0xfe000000;
   const auto prefix = lines_.prefix( takeWord( text ) );
   const std::uint32_t metric = lines_.number( between( text, "(Metric: ", ")" ) );
   if ( metric <= maxPathMetric ) {
      lsp().prefixes.push_back( { prefix, metric, ipv6Topology, narrow } );
   }
}

bool
IsisReader::readLinkAddress() {
   struct Kind {
      std::string_view label;
      Addresses LinkEnd::*list;
   };
   static constexpr std::array kinds = {
      Kind{ "Local Interface IP Address(es): ", &LinkEnd::local },
      Kind{ "Remote Interface IP Address(es): ", &LinkEnd::remote },
      Kind{ "Local Interface IPv6 Address(es): ", &LinkEnd::local },
      Kind{ "Remote Interface IPv6 Address(es): ", &LinkEnd::remote } };
   for ( const Kind & kind : kinds ) {
      if ( auto text = lines_.after( kind.label ) ) {
         const auto address = lines_.address( takeWord( *text ) );
         if ( address ) {
            ( link_->*kind.list ).push_back( address );
         }
         return true;
      }
   }
   return false;
}

void
IsisReader::readLinkAttribute() {
   if ( auto metric = lines_.after( "Traffic Engineering Metric: " ) ) {
      link_->te.teMetric = lines_.number( takeWord( *metric ) );
   } else if ( auto group = lines_.after( "Administrative Group: " ) ) {
      link_->te.adminGroup = lines_.mask( takeWord( *group ) );
   } else if ( auto most = lines_.after( "Maximum Bandwidth: " ) ) {
      link_->te.bandwidth =
         readBandwidth( lines_, takeWord( *most ), ownerText(), capture_.findings );
   } else if ( lines_.startsWith( "[" ) ) {
      readUnreserved( lines_, link_->te, ownerText(), capture_.findings );
   } else if ( lines_.startsWith( "Extended Admin" ) ) {
      capture_.findings.push_back( ownerText() + ": an extended administrative group is not used" );
   } else if ( lines_.startsWith( "Unknown" ) ) {
      capture_.findings.push_back( ownerText() + ": not used: " + std::string( lines_.text() ) );
   }
}

}

void
readIsis( std::string_view text, const std::string & name, IsisCapture & capture ) {
   IsisReader( text, name, capture ).readAll();
}

}
