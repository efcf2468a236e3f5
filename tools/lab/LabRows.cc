// Puts published paths into words.

#include "tools/lab/LabRows.h"

namespace Lab {

namespace {

template< class List >
std::string
namesOf( const RouterNames & names, const List & list ) {
   std::string text;
   for ( const auto & element : list ) {
      text.append( text.empty() ? "" : ", " ).append( names.of( element ) );
   }
   return text;
}

/// What a path without hops, or a repair, has instead: the agent's reason with it where it gave
/// one.
std::string
withReason( const std::string & text, const std::string & reason ) {
   return reason.empty() ? text : text + ": " + reason;
}

std::string
hopsOf( const RouterNames & names, const PathOutcome & path ) {
   if ( path.status.pathTeRouterIdList().empty() ) {
      return path.cost == std::uint64_t( 0 ) ? "this router" : withReason( "no path", path.error );
   }
   // A path that could not be replaced stays published.
   const std::string hops = namesOf( names, path.status.pathTeRouterIdList() );
   return path.error.empty() ? hops : hops + "; " + path.error;
}

/// "over INTERFACE to NEIGHBOR, then NODE, NODE"
std::string
protectionOf( const RouterNames & names, const PathOutcome & path, const ClientOutcome & service ) {
   const auto repair = service.pqInfo.find( path.status.repairPathIdx() );
   if ( repair == service.pqInfo.end() ) {
      return withReason( "no protection", path.error );
   }
   const Cspf::PqInfo & info = repair->second;
   std::string text = "over " + info.nhIntf().stringValue();
   if ( info.nhIp() ) {
      text += " to " + names.of( info.nhIp() );
   }
   return info.pathList().empty() ? text : text + ", then " + namesOf( names, info.pathList() );
}

}

Row
rowOf( const RouterNames & names, const std::string & client, const PathOutcome & path,
       const ClientOutcome & service ) {
   const bool tilfa = client == tilfaClient;
   Row row;
   row.name = path.name.value_or( "" );
   row.destination = names.withText( path.status.pathKey().dst() );
   row.metric = path.cost ? std::to_string( *path.cost ) : noMetric;
   row.route = tilfa ? protectionOf( names, path, service ) : hopsOf( names, path );
   row.answered = path.status.refreshRespSeq();
   row.up = tilfa ? path.status.repairPathIdx() != 0 : !path.status.pathList().empty();
   return row;
}

namespace {

class RowMaker {
 public:
   explicit RowMaker( const LabDocument & document ) : document_( document ) {}

   void addAsked() {
      for ( const auto & [ client, paths ] : document_.paths ) {
         for ( const auto & [ name, path ] : paths ) {
            const VrfAf where{ path.vrf, path.af };
            Row row;
            row.name = name;
            row.destination = names( where ).withText( path.dst );
            row.route = "no answer";
            rows.emplace( RowKey{ where, client, { path.dst, path.id } }, std::move( row ) );
         }
      }
   }
   void addPublished( const Outcome & outcome ) {
      for ( const auto & [ client, services ] : outcome.clients ) {
         for ( const auto & [ where, service ] : services ) {
            for ( const PathOutcome & path : service.unanswered ) {
               const auto row = rows.find( { where, client, path.status.pathKey() } );
               if ( row != rows.end() ) {
                  row->second.route = withReason( "no answer", path.error );
               }
            }
            for ( const PathOutcome & path : service.pathStatus ) {
               rows[ { where, client, path.status.pathKey() } ] =
                  rowOf( names( where ), client, path, service );
            }
         }
      }
   }

   Rows rows;

 private:
   const RouterNames & names( const VrfAf & where ) {
      auto & names = names_[ where ];
      if ( !names ) {
         names.emplace( document_, where );
      }
      return *names;
   }

   const LabDocument & document_;
   std::map< VrfAf, std::optional< RouterNames > > names_;
};

}

Rows
rowsOf( const LabDocument & document, const Outcome & outcome ) {
   RowMaker maker( document );
   maker.addAsked();
   maker.addPublished( outcome );
   return std::move( maker.rows );
}

}
