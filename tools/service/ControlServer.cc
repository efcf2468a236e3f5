// Requests from the control socket. A request is parsed and checked whole, then served, then
// answered; whatever is wrong with it becomes an error answer and touches nothing else. A frame is
// read twice: as a lab's text would be, with bounded nesting and in the order in which it is
// written, which matters to labs, and then as plain JSON.

#include "tools/service/ControlServer.h"

#include "tools/service/CommandStream.h"
#include "tools/service/UnixSocket.h"

#include <sys/epoll.h>
#include <unistd.h>

namespace Service {

namespace {

enum RpcError {
   parseError = -32700,
   invalidRequest = -32600,
   methodNotFound = -32601,
   invalidParams = -32602,
   serverError = -32000
};

struct RpcFailure {
   int code;
   std::string text;
};

Json
versioned( Json body ) {
   body[ "jsonrpc" ] = "2.0";
   return body;
}

Json
errorAnswer( const Json & id, int code, const std::string & text ) {
   return versioned( { { "id", id }, { "error", { { "code", code }, { "message", text } } } } );
}

Json
notification( const char * method, Json params ) {
   return versioned( { { "method", method }, { "params", std::move( params ) } } );
}

std::string
frame( const Json & body ) {
   return body.dump( -1, ' ', false, Json::error_handler_t::replace );
}

bool
isRequest( const Json & json ) {
   return json.is_object() && json.value( "jsonrpc", Json() ) == "2.0"
          && json.value( "method", Json() ).is_string();
}

template< class T >
T
param( const Json & params, const char * name ) {
   try {
      return params.at( name ).get< T >();
   } catch ( const Json::exception & ) {
      throw RpcFailure{ invalidParams,
                        std::string( "\"" ) + name + "\" is missing or of a wrong type" };
   }
}

}

class ControlServer::Client {
 public:
   Client( ControlServer & server, std::uint64_t number, int socket )
      : server_( server ),
        connection_(
           server.loop_, socket,
           { [ this ]( std::string_view text ) { handleFrame( text ); },
             [ this ] {
                answer( errorAnswer( nullptr, invalidRequest, "the frame is longer than 8 MiB" ) );
             },
             [ &server, number ] { server.clients_.erase( number ); } } ) {
      connection_.farewellIs(
         frame( notification( "cutOff", { { "reason", "too much is waiting to be read" } } ) ) );
   }
   /// A table has come or gone.
   void handleTable( const std::string & path );

 private:
   /// What a client watches under one path; the watches of single entities and tables.
   struct Watch {
      bool tables = false;
      std::map< std::string, Lum::Ptr< StateWatch > > parts;
   };

   void handleFrame( std::string_view text );
   std::optional< Json > answerTo( const Json & request, const Lab::LabJson & inOrder );
   Json serve( const std::string & method, const Json & params, const Json & id );
   Json load( const Lab::LabJson & request );
   Json watch( const Json & params );
   Json unwatch( const Json & params );
   Json command( const Json & params, const Json & id );
   Json status() const;
   Lum::Ptr< StateWatch > watchOf( const std::string & path );
   void answer( const Json & json ) { connection_.answer( frame( json ) ); }
   void tell( const Json & change ) {
      connection_.send( frame( notification( "change", change ) ) );
   }

   ControlServer & server_;
   Connection connection_;
   std::map< std::string, Watch > watches_;
};

void
ControlServer::Client::handleFrame( std::string_view text ) {
   Lab::LabJson inOrder;
   try {
      inOrder = Lab::LabJson::parse( text );
   } catch ( const Lab::LabError & error ) {
      answer( errorAnswer( nullptr, parseError, error.what() ) );
      return;
   }
   const Json json = Json::parse( text );
   const auto * batch = inOrder.as< Lab::LabJsonArray >();
   if ( !batch || batch->empty() ) {
      if ( const auto one = answerTo( json, inOrder ) ) {
         answer( *one );
      }
      return;
   }
   Json answers = Json::array();
   for ( std::size_t i = 0; i < batch->size(); ++i ) {
      if ( auto one = answerTo( json[ i ], ( *batch )[ i ] ) ) {
         answers.push_back( std::move( *one ) );
      }
   }
   if ( !answers.empty() ) {
      answer( answers );
   }
}

/// Nothing for a request without "id", which wants none.
std::optional< Json >
ControlServer::Client::answerTo( const Json & request, const Lab::LabJson & inOrder ) {
   const Json id = request.is_object() ? request.value( "id", Json() ) : Json();
   if ( !isRequest( request ) || id.is_structured() || id.is_boolean() ) {
      return errorAnswer( id.is_primitive() && !id.is_boolean() ? id : Json(), invalidRequest,
                          "this is no JSON-RPC 2.0 request" );
   }
   Json reply;
   try {
      const auto method = request[ "method" ].get< std::string >();
      Json result = method == "load"
                       ? load( inOrder )
                       : serve( method, request.value( "params", Json::object() ), id );
      reply = versioned( { { "id", id }, { "result", std::move( result ) } } );
   } catch ( const RpcFailure & failure ) {
      reply = errorAnswer( id, failure.code, failure.text );
   } catch ( const std::runtime_error & error ) {
      reply = errorAnswer( id, serverError, error.what() );
   }
   return request.contains( "id" ) ? std::optional( std::move( reply ) ) : std::nullopt;
}

Json
ControlServer::Client::serve( const std::string & method, const Json & params, const Json & id ) {
   if ( method == "get" ) {
      return server_.view_.get( param< std::string >( params, "path" ) );
   }
   if ( method == "patch" ) {
      server_.view_.patch( param< std::string >( params, "path" ),
                           param< Json >( params, "patch" ) );
      return true;
   }
   if ( method == "watch" ) {
      return watch( params );
   }
   if ( method == "unwatch" ) {
      return unwatch( params );
   }
   if ( method == "command" ) {
      return command( params, id );
   }
   if ( method == "status" ) {
      return status();
   }
   throw RpcFailure{ methodNotFound, "there is no method \"" + method + "\"" };
}

Json
ControlServer::Client::load( const Lab::LabJson & request ) {
   const Lab::LabJson * params = request.find( "params" );
   const Lab::LabJson * lab = params ? params->find( "lab" ) : nullptr;
   if ( !lab ) {
      throw RpcFailure{ invalidParams, "\"lab\" is missing" };
   }
   server_.load_( *lab );
   return true;
}

Lum::Ptr< StateWatch >
ControlServer::Client::watchOf( const std::string & path ) {
   return Lum::make< StateWatch >( path, server_.view_.find( path ),
                                   [ this ]( const Json & change ) { tell( change ); } );
}

Json
ControlServer::Client::watch( const Json & params ) {
   std::vector< StateView::Watched > watched;
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      watched.push_back( server_.view_.watched( path ) );
   }
   Json states = Json::object();
   for ( const auto & [ path, present, tables ] : watched ) {
      Watch & watch = watches_[ path ] = { tables, {} };
      for ( const std::string & part : present ) {
         states[ part ] = server_.view_.typed( part );
         watch.parts[ part ] = watchOf( part );
      }
   }
   return states;
}

Json
ControlServer::Client::unwatch( const Json & params ) {
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      watches_.erase( Corvdb::canonicalPath( path ) );
   }
   return true;
}

void
ControlServer::Client::handleTable( const std::string & path ) {
   const bool isThere = server_.view_.find( path ) != nullptr;
   for ( auto & [ top, watch ] : watches_ ) {
      if ( !watch.tables || !isAtOrBelow( path, top ) ) {
         continue;
      }
      Json change = isThere ? server_.view_.typed( path ) : Json::object();
      change[ "path" ] = path;
      tell( change );
      if ( isThere ) {
         watch.parts[ path ] = watchOf( path );
      } else {
         watch.parts.erase( path );
      }
   }
}

Json
ControlServer::Client::command( const Json & params, const Json & id ) {
   const auto name = param< std::string >( params, "name" );
   const auto text = param< std::string >( params, "text" );
   CommandStream stream;
   if ( !server_.runner_.command( name, stream.fd(), text ) ) {
      throw RequestError( "the agent takes no command \"" + name + "\"" );
   }
   stream.forEachPiece( [ & ]( std::string_view piece ) {
      answer( notification( "output", { { "id", id }, { "text", piece } } ) );
   } );
   return true;
}

Json
ControlServer::Client::status() const {
   const auto & agent = server_.runner_.agent();
   return { { "pid", getpid() },
            { "agent", agent ? Json( agent->name() ) : Json() },
            { "clients", server_.clients_.size() },
            { "pendingTasks", server_.runner_.taskScheduler()->pendingNames() } };
}

ControlServer::ControlServer( Lum::ActivityLoop & loop, AgentRunner::Runner & runner,
                              StateView & view, std::string path, Load load )
   : loop_( loop ),
     runner_( runner ),
     view_( view ),
     path_( std::move( path ) ),
     load_( std::move( load ) ),
     listener_( listenAt( path_ ) ) {
   loop_.fdIs( listener_, EPOLLIN, [ this ]( std::uint32_t ) { handleConnect(); } );
   view_.tableListenerIs( [ this ]( const std::string & table ) {
      for ( const auto & [ number, client ] : clients_ ) {
         client->handleTable( table );
      }
   } );
}

ControlServer::~ControlServer() {
   view_.tableListenerIs( {} );
   clients_.clear();
   loop_.fdDel( listener_ );
   close( listener_ );
   unlink( path_.c_str() );
}

void
ControlServer::handleConnect() {
   const int socket = acceptOwner( listener_ );
   if ( socket >= 0 ) {
      const std::uint64_t number = ++lastClient_;
      clients_[ number ] = std::make_unique< Client >( *this, number, socket );
   }
}

}
