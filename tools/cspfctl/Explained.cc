// Facts of the agent in words. A fact keeps the agent's own names in JSON; numbers are numbers.

#include "tools/cspfctl/Explained.h"

#include "tools/cspfctl/Facts.h"
#include "tools/text/Bandwidth.h"
#include "tools/text/Table.h"

#include <algorithm>
#include <ostream>
#include <sstream>

namespace {

using Json = nlohmann::json;

/// How the facts of one kind stand in JSON: in a list of that name, or, once, under their own.
const std::map< std::string, std::string > lists{
   { "hop", "hops" }, { "refused", "refused" }, { "existsWithout", "existsWithout" } };

std::string
bandwidth( const Json & fact, const char * name ) {
   return fact.contains( name ) ? Text::bandwidthText( fact[ name ].get< std::uint64_t >() ) : "";
}

std::string
hex( std::uint32_t mask ) {
   std::ostringstream out;
   out << "0x" << std::hex << mask;
   return out.str();
}

std::uint64_t
number( const Json & fact, const char * name ) {
   return fact.value( name, std::uint64_t( 0 ) );
}

}

Explained::Explained( std::string title, const Prove::Service & service,
                      const Prove::Answer & answer, std::map< std::string, std::string > names )
   : title_( std::move( title ) ),
     where_( service.text() ),
     answer_( answer ),
     constraint_( answer.config ? answer.config->constraint() : Cspf::PathConstraint() ),
     names_( std::move( names ) ) {}

void
Explained::factsAre( const std::string & lines ) {
   Json * into = &facts_;
   for ( const auto & [ kind, fact ] : factsOf( lines ) ) {
      if ( kind == "reason" ) {
         ( *into )[ "reasons" ].push_back( fact.value( "text", "" ) );
      } else if ( const auto list = lists.find( kind ); list != lists.end() ) {
         ( *into )[ list->second ].push_back( fact );
      } else if ( kind == "whyNot" ) {
         into = &( facts_[ "whyNot" ] = Json::object() );
      } else {
         ( kind == "waits" ? facts_ : *into )[ kind ] = fact;
      }
   }
}

std::string
Explained::router( const std::string & teRouterId ) const {
   const auto name = names_.find( teRouterId );
   return name == names_.end() ? teRouterId : name->second;
}

/// A part of the constraint with what it asks for; "" where it asks for nothing.
std::string
Explained::partText( const std::string & name ) const {
   const Cspf::PathConstraint & c = constraint_;
   std::string value;
   const auto addresses = [ & ]( const auto & list, const auto & addressOf ) {
      for ( const auto & element : list ) {
         value += ( value.empty() ? "" : ", " ) + addressOf( element );
      }
   };
   if ( name == "bandwidth" && c.bandwidth() ) {
      value = Text::bandwidthText( c.bandwidth() ) + " at priority "
              + std::to_string( c.bwSetupPriority() );
   } else if ( name == "excludeIntf" && c.excludeIntf() ) {
      value = c.excludeIntf().stringValue();
   } else if ( name == "excludeNode" && c.excludeNode() ) {
      value = router( c.excludeNode().nodeId().ipAddress().stringValue() );
   } else if ( name == "excludeSrlg" && c.excludeSrlg() ) {
      value = c.srlgStrictMode() ? "strictly" : "where it can be";
   } else if ( name == "topoId" && c.topoId() ) {
      value = c.topoId().stringValue();
   } else if ( name == "excludeLinkWithIp" ) {
      addresses( c.excludeLinkWithIpList(), []( const auto & a ) { return a.stringValue(); } );
   } else if ( name == "includeHop" ) {
      addresses( c.includeHopList(), []( const auto & hop ) { return hop.addr().stringValue(); } );
   }
   const std::map< std::string, std::uint32_t > masks{
      { "includeAllAdminGroup", c.includeAllAdminGroup() },
      { "includeAnyAdminGroup", c.includeAnyAdminGroup() },
      { "excludeAdminGroup", c.excludeAdminGroup() } };
   if ( const auto mask = masks.find( name ); mask != masks.end() && mask->second ) {
      value = hex( mask->second );
   }
   return value.empty() ? "" : name + " " + value;
}

std::string
Explained::asked() const {
   std::string text;
   for ( const char * name : { "excludeIntf", "excludeNode", "excludeSrlg", "includeAllAdminGroup",
                               "includeAnyAdminGroup", "excludeAdminGroup", "topoId", "bandwidth",
                               "excludeLinkWithIp", "includeHop" } ) {
      if ( const std::string part = partText( name ); !part.empty() ) {
         text += ( text.empty() ? "" : ", " ) + part;
      }
   }
   return text.empty() ? "nothing in particular" : text;
}

/// "10.1.0.6 to b: bandwidth is not available: 80 of 100 free at priority 5, 90 asked"
std::string
Explained::refusalText( const Json & link ) const {
   const std::string test = link.value( "test", "" );
   std::string numbers;
   if ( test == "bandwidth is not available" ) {
      numbers = bandwidth( link, "free" ) + " of " + bandwidth( link, "bandwidth" )
                + " free at priority " + std::to_string( constraint_.bwSetupPriority() )
                + ( number( link, "own" ) ? ", " + bandwidth( link, "own" ) + " its own" : "" )
                + ", " + Text::bandwidthText( constraint_.bandwidth() ) + " asked";
   } else if ( test.find( "administrative" ) != test.npos ) {
      numbers = "it has " + link.value( "adminGroup", "none" );
   } else if ( test.find( "SRLG" ) != test.npos ) {
      numbers = "it has " + link.value( "srlg", "none" );
   }
   return link.value( "near", link.value( "from", "" ) ) + " from "
          + router( link.value( "from", "" ) ) + " to " + router( link.value( "to", "" ) ) + ": "
          + ( test.empty() ? "beyond the greatest path metric" : test )
          + ( numbers.empty() ? "" : ": " + numbers );
}

void
Explained::printHops( std::ostream & out ) const {
   const bool bandwidths = constraint_.bandwidth() > 0;
   std::vector< std::string > columns{ "HOP", "ROUTER", "ADDRESS", "METRIC", "SUM" };
   if ( bandwidths ) {
      columns.insert( columns.end(), { "FREE", "OWN" } );
   }
   columns.emplace_back( "REMARK" );
   Text::Table table( columns );
   std::uint64_t sum = 0;
   int count = 0;
   for ( const Json & hop : facts_[ "hops" ] ) {
      sum += number( hop, "metric" );
      std::vector< std::string > row{
         std::to_string( ++count ), router( hop.value( "to", "?" ) ), hop.value( "address", "" ),
         std::to_string( number( hop, "metric" ) ), std::to_string( sum ) };
      if ( bandwidths ) {
         row.push_back( bandwidth( hop, "free" ) );
         row.push_back( bandwidth( hop, "own" ) );
      }
      std::string remark = hop.contains( "test" ) ? "now refused: " + refusalText( hop ) : "";
      if ( hop.contains( "sharedRisks" ) ) {
         remark += ( remark.empty() ? "" : "; " ) + std::string( "shares SRLG " )
                   + hop.value( "srlg", "" );
      }
      if ( number( hop, "equal" ) > 1 ) {
         remark += ( remark.empty() ? "" : "; " ) + std::string( "one of " )
                   + std::to_string( number( hop, "equal" ) ) + " equal ways to here";
      }
      row.push_back( remark );
      table.row( row );
   }
   table.print( out, Text::terminalWidth() );
}

/// Against the least cost that the constraint allows.
void
Explained::printCost( std::ostream & out ) const {
   const auto least = facts_.find( "best" );
   if ( !facts_.contains( "cost" ) || least == facts_.end() ) {
      return;
   }
   const std::uint64_t metric = number( facts_[ "cost" ], "metric" ),
                       best = number( *least, "metric" ), equal = number( *least, "equalPaths" );
   const std::uint64_t risks = number( facts_[ "cost" ], "sharedRisks" ),
                       leastRisks = number( *least, "sharedRisks" );
   out << "metric " << metric << ": ";
   if ( std::pair( risks, metric ) == std::pair( leastRisks, best ) ) {
      out << "the least";
      if ( equal > 1 ) {
         out << ", of " << equal
             << " equal paths; one is taken at random, and kept while it is among the least";
      }
   } else if ( answer_.stitched() ) {
      out << best << " without the hops that are asked for";
   } else if ( metric > best && risks == leastRisks ) {
      out << "the best path costs " << best << ", " << metric - best << " less";
   } else {
      out << "the best path costs " << best << " and shares " << leastRisks << " risks, this one "
          << risks;
   }
   out << "\n";
   if ( answer_.client == Prove::rsvpClient
        && std::pair( leastRisks, best ) < std::pair( risks, metric ) && !answer_.stitched() ) {
      out << "it stays while it is valid, since it carries traffic; a new refreshReqSeq moves it\n";
   }
}

void
Explained::printAbsence( std::ostream & out ) const {
   for ( const Json & without : facts_.value( "existsWithout", Json::array() ) ) {
      const std::string part = without.value( "part", "" ), other = without.value( "and", "" );
      out << "exists without " << partText( part )
          << ( other.empty() ? "" : " and " + partText( other ) );
      if ( number( without, "upTo" ) > 0 ) {
         out << "; exists with bandwidth up to " << bandwidth( without, "upTo" );
      }
      out << "\n";
   }
   const Json refused = facts_.value( "refused", Json::array() );
   if ( !refused.empty() ) {
      out << "refused between what is reached and the destination:\n";
   }
   for ( const Json & link : refused ) {
      out << "   " << refusalText( link ) << "\n";
   }
}

void
Explained::printWhyNot( std::ostream & out ) const {
   const auto why = facts_.find( "whyNot" );
   if ( why == facts_.end() ) {
      return;
   }
   out << "by the hops that are asked about: ";
   for ( const Json & reason : why->value( "reasons", Json::array() ) ) {
      out << reason.get< std::string >() << " ";
   }
   if ( const auto by = why->find( "by" ); by != why->end() ) {
      const auto best = static_cast< std::int64_t >(
         facts_.contains( "best" ) ? number( facts_[ "best" ], "metric" ) : 0 );
      const auto metric = static_cast< std::int64_t >( number( *by, "metric" ) );
      out << "metric " << metric << ", "
          << ( metric == best ? "as the best"
                              : std::to_string( metric - best ) + " more than the best" );
      if ( number( *by, "sharedRisks" ) > 0 ) {
         out << ", with " << number( *by, "sharedRisks" ) << " shared risks";
      }
   }
   out << "\n";
   for ( const Json & link : why->value( "refused", Json::array() ) ) {
      out << "   refused: " << refusalText( link ) << "\n";
   }
}

void
Explained::printText( std::ostream & out ) const {
   out << title_ << " to " << router( answer_.key.dst().stringValue() ) << " id "
       << answer_.key.id() << ", " << where_ << ", asks for " << asked() << "\n";
   if ( facts_.contains( "hops" ) ) {
      printHops( out );
   }
   printCost( out );
   if ( answer_.status && !answer_.hasHops() && answer_.error.empty() && facts_.contains( "best" )
        && number( facts_[ "best" ], "metric" ) == 0 ) {
      out << "the destination is this router\n";
   }
   if ( !answer_.error.empty() ) {
      out << "the agent says: " << answer_.error << "\n";
   }
   for ( const Json & reason : facts_.value( "reasons", Json::array() ) ) {
      out << reason.get< std::string >() << "\n";
   }
   printAbsence( out );
   if ( const auto waits = facts_.find( "waits" ); waits != facts_.end() ) {
      out << "a computation waits for the throttle, for " << number( *waits, "milliseconds" )
          << " ms more\n";
   }
   printWhyNot( out );
}

void
Explained::printJson( std::ostream & out ) const {
   Json json = facts_;
   json[ "path" ] = title_;
   json[ "where" ] = where_;
   json[ "destination" ] = answer_.key.dst().stringValue();
   json[ "id" ] = answer_.key.id();
   if ( !answer_.error.empty() ) {
      json[ "error" ] = answer_.error;
   }
   out << json.dump() << "\n";
}
