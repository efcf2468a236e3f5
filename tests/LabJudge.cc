// Goes through what the clients of a lab ask for, path by path, and asks the oracle.

#include "tests/LabJudge.h"

#include "tests/LabOracle.h"

using Json = nlohmann::json;

namespace {

class Judge {
 public:
   Judge( const Json & document, const Json & outcome, bool fresh )
      : document_( document ),
        outcome_( outcome ),
        fresh_( fresh ) {}

   Judgement all() {
      for ( const Json asked = document_.value( "paths", none_ );
            const auto & [ client, paths ] : asked.items() ) {
         for ( const auto & [ name, path ] : paths.items() ) {
            const std::string problem = client == "tilfa" ? "" : one( client, name, path );
            if ( !problem.empty() ) {
               judgement_.complaints +=
                  client + " " + name + " " + path.dump() + ": " + problem + "\n";
            }
         }
      }
      return judgement_;
   }

 private:
   LabOracle & oracle( const std::string & vrf ) {
      return oracles_.try_emplace( vrf, document_, vrf ).first->second;
   }

   bool served( const std::string & client, const Json & path, const std::string & vrf ) {
      const Json asked = document_.value( "clients", none_ ).value( client, none_ );
      return asked.value( "vrf", none_ ).value( vrf, false )
             && asked.value( "addressFamily", none_ ).value( "ipv4", false )
             && path.value( "af", "ipv4" ) == "ipv4" && !oracle( vrf ).source().empty();
   }

   static bool plain( const Json & constraint ) {
      for ( const char * field : { "includeHopAllExplicit", "bandwidth", "sourceType", "noSpf" } ) {
         if ( constraint.contains( field ) ) {
            return false;
         }
      }
      return true;
   }

   std::string one( const std::string & client, const std::string & name, const Json & path ) {
      const std::string vrf = path.value( "vrf", "default" );
      Json status;
      const Json services = outcome_[ "clients" ].value( client, none_ );
      for ( const Json & each :
            services.value( vrf + "/ipv4", none_ ).value( "pathStatus", Json::array() ) ) {
         status = each[ "name" ] == name ? each : status;
      }
      if ( !served( client, path, vrf ) ) {
         return status.is_null() ? "" : "a path without service";
      }
      const Json constraint = path.value( "constraint", none_ );
      if ( !plain( constraint ) ) {
         return "";
      }
      if ( constraint.contains(
              "includeHop" ) ) {  // hops that cannot be followed leave a reason alone
         return status.is_null()
                   ? ""
                   : explicitHops( client == "cli" || fresh_, status, path, constraint, vrf );
      }
      return status.is_null() ? "no status"
                              : hops( client == "cli" || fresh_, status, path, constraint, vrf );
   }

   /// A path that was put together holds, and one that follows its request passes the hops in
   /// order.
   std::string explicitHops( bool follows, Json status, const Json & path, Json constraint,
                             const std::string & vrf ) {
      const Json hops = constraint[ "includeHop" ];
      constraint.erase( "includeHop" );
      status.erase( "pathSrlg" );
      LabOracle & oracle = this->oracle( vrf );
      if ( status.contains( "error" ) || status[ "path" ].empty() ) {
         return "";  // what stands beside an error was for an earlier request
      }
      ++judgement_.paths;
      std::string complaint;
      const auto cost = oracle.walk( status, path[ "dst" ], constraint, complaint );
      std::vector< std::string > routers{ oracle.source() };
      for ( const Json & router : status[ "pathTeRouterId" ] ) {
         routers.push_back( router );
      }
      std::size_t at = 0;
      for ( const Json & hop : follows ? hops : Json::array() ) {
         while ( at < routers.size() && !oracle.owns( routers[ at ], hop[ "addr" ] ) ) {
            ++at;
         }
      }
      return !cost                              ? complaint
             : at == routers.size()             ? "it does not pass its hops"
             : status[ "cost" ] != cost->metric ? "its cost is given as " + status[ "cost" ].dump()
                                                : "";
   }

   std::string hops( bool isBest, Json status, const Json & path, const Json & constraint,
                     const std::string & vrf ) {
      if ( !isBest ) {
         // SRLGs of a path in use are those of its computation.
         status.erase( "pathSrlg" );
      }
      LabOracle & oracle = this->oracle( vrf );
      const std::string dst = path[ "dst" ];
      const auto best = oracle.cost( dst, constraint );
      if ( status[ "path" ].empty() ) {
         judgement_.missing += !best;
         return best && best->metric > 0 ? "none, and there is one" : "";
      }
      ++judgement_.paths;
      std::string complaint;
      const auto cost = oracle.walk( status, dst, constraint, complaint );
      if ( !cost ) {
         return complaint;
      }
      if ( isBest && cost != best ) {
         return "costs " + std::to_string( cost->metric ) + ", the best is "
                + ( best ? std::to_string( best->metric ) : "none" );
      }
      return status[ "cost" ] == cost->metric ? ""
                                              : "its cost is given as " + status[ "cost" ].dump();
   }

   inline static const Json none_ = Json::object();
   const Json & document_;
   const Json & outcome_;
   const bool fresh_;
   std::map< std::string, LabOracle > oracles_;
   Judgement judgement_;
};

}

Judgement
judge( const Json & document, const Json & outcome, bool fresh ) {
   return Judge( document, outcome, fresh ).all();
}
