// The command that asks why: from names to the rows of a path, and facts back as lines.

#include "Cspf/Agent/ExplainCommand.h"

#include "Cspf/Agent/Agent.h"
#include "Cspf/Runs/Explanation.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace Cspf {

namespace {

std::vector< std::string >
wordsOf( const std::string & command ) {
   std::vector< std::string > words( 1 );
   for ( const char letter : command ) {
      if ( letter == '\t' ) {
         words.emplace_back();
      } else {
         words.back() += letter;
      }
   }
   return words;
}

ExplainedFacts
reason( std::string_view text ) {
   return { ExplainedFact( "reason" ).with( "text", text ) };
}

/// The client's own row; null where the agent keeps none.
Lum::Ptr< PathStatusInfo >
rowOf( const VrfRoot & root, const std::string & client, const std::string & name ) {
   for ( const auto & [ key, row ] : root.pathStatusInfoTable()->pathStatusInfoColl() ) {
      const PathKey & path = key.pathKey();
      if ( !key.internal() && key.clientName() == client
           && path.dst().stringValue() + "#" + std::to_string( path.id() ) == name ) {
         return row;
      }
   }
   return nullptr;
}

/// That a computation waits, and for how long still.
ExplainedFact
waitOf( const ConstraintStats & stats ) {
   const double rest = std::max( 0.0, stats.timerEndsAt - Lum::now() );
   return ExplainedFact( "waits" ).with( "milliseconds",
                                         static_cast< std::uint64_t >( std::ceil( rest * 1000 ) ) );
}

void
tellThrottle( const VrfRoot & root, const PathStatusInfo & row, ExplainedFacts & facts ) {
   const auto * stats =
      root.constraintStatsTable()->constraintStatsFind( ConstraintHandle( row.constraint() ) );
   if ( stats && ( *stats )->cspfScheduled() ) {
      facts.push_back( waitOf( **stats ) );
   }
}

/// The paths for which the constraints of that family wait.
ExplainedFacts
waitsOf( const CspfRoot & roots ) {
   ExplainedFacts facts;
   for ( const auto & [ vrf, root ] : roots.vrfRootColl() ) {
      for ( const auto & [ handle, stats ] : root->constraintStatsTable()->constraintStatsColl() ) {
         const auto * info = root->constraintInfoTable()->constraintInfoFind( handle );
         if ( !stats->cspfScheduled() || !info ) {
            continue;
         }
         std::set< std::string > paths;
         for ( const auto & [ key, used ] : ( *info )->pathColl() ) {
            const PathKey path = key.clientPathKey();
            paths.insert( key.clientName() + "/" + path.dst().stringValue() + "#"
                          + std::to_string( path.id() ) );
         }
         ExplainedFact fact = waitOf( *stats );
         fact.with( "vrf", vrf.stringValue() ).with( "family", Kivnet::text( roots.af() ) );
         for ( const std::string & path : paths ) {
            fact.with( "path", path );
         }
         facts.push_back( fact );
      }
   }
   return facts;
}

ExplainedFacts
factsOf( const VrfRoot & root, const PathStatusInfo & row,
         std::span< const std::string > addresses ) {
   ExplainedPath path;
   path.constraint = row.constraint()->pathConstraint();
   const PathKey & key = row.pathInfoKey().pathKey();
   path.destination = key.dst().ipAddress();
   if ( path.constraint.pathComputationType() != PathComputationType::cspf ) {
      return reason( "repairs are not explained" );
   }
   if ( path.constraint.bandwidth() > 0 && path.constraint.bwSetupPriority() > BwPriority::max ) {
      return reason( "there is no priority "
                     + std::to_string( path.constraint.bwSetupPriority() ) );
   }
   const auto & hops = row.cspfStatus()->pathStatus( key ).pathList();
   path.hops.assign( hops.begin(), hops.end() );
   ExplainedFacts facts = explain( root.topology(), path );
   if ( !addresses.empty() ) {
      std::vector< Kivnet::IpGenAddr > by;
      for ( const std::string & address : addresses ) {
         by.push_back( Kivnet::IpGenAddr::parse( address ).value_or( Kivnet::IpGenAddr() ) );
      }
      const ExplainedFacts more = explainBy( root.topology(), path, by );
      facts.push_back( ExplainedFact( "whyNot" ) );
      facts.insert( facts.end(), more.begin(), more.end() );
   }
   tellThrottle( root, row, facts );
   return facts;
}

ExplainedFacts
answer( const Agent & agent, const std::vector< std::string > & words ) {
   if ( words.size() < 4 ) {
      return reason( "a VRF, a family, a client and a path are named" );
   }
   const auto & roots = words[ 1 ] == "ipv6" ? agent.v6CspfRoot() : agent.v4CspfRoot();
   const auto root = roots ? roots->vrfRoot( L3::VrfName( words[ 0 ] ) ) : nullptr;
   if ( !root || !root->initialized() ) {
      return reason( "nobody is served in VRF " + words[ 0 ] + " for " + words[ 1 ] );
   }
   const auto row = rowOf( *root, words[ 2 ], words[ 3 ] );
   if ( !row || !row->constraint() ) {
      return reason( "the agent does not follow this path" );
   }
   return factsOf( *root, *row, std::span( words ).subspan( 4 ) );
}

}

CspfWaitsCallback::CspfWaitsCallback( const std::string & name, const Lum::Ptr< Agent > & agent )
   : CommandCallback( name ),
     agent_( agent ) {}

CspfWaitsCallback::~CspfWaitsCallback() = default;

void
CspfWaitsCallback::handleCommand( int fd, const std::string & ) {
   Kiv::DumpContext context( fd );
   for ( const auto & roots : { agent_->v4CspfRoot(), agent_->v6CspfRoot() } ) {
      for ( const ExplainedFact & fact : roots ? waitsOf( *roots ) : ExplainedFacts() ) {
         context.printf( 0, "%s\n", fact.text().c_str() );
      }
   }
}

CspfExplainCallback::CspfExplainCallback( const std::string & name,
                                          const Lum::Ptr< Agent > & agent )
   : CommandCallback( name ),
     agent_( agent ) {}

CspfExplainCallback::~CspfExplainCallback() = default;

void
CspfExplainCallback::handleCommand( int fd, const std::string & command ) {
   Kiv::DumpContext context( fd );
   for ( const ExplainedFact & fact : answer( *agent_, wordsOf( command ) ) ) {
      context.printf( 0, "%s\n", fact.text().c_str() );
   }
}

}
