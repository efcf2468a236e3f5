// Requests from the control socket. A request is parsed and checked whole, then served, then
// answered; whatever is wrong with it becomes an error answer and touches nothing else.

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

std::string
frame( Json body ) {
   body[ "jsonrpc" ] = "2.0";
   return body.dump( -1, ' ', false, Json::error_handler_t::replace );
}

std::string
errorFrame( const Json & id, int code, const std::string & text ) {
   return frame( { { "id", id }, { "error", { { "code", code }, { "message", text } } } } );
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
        connection_( server.loop_, socket,
                     { [ this ]( std::string_view text ) { handleFrame( text ); },
                       [ this ] {
                          connection_.send(
                             errorFrame( nullptr, invalidRequest, "the frame is too large" ) );
                       },
                       [ &server, number ] { server.clients_.erase( number ); } } ) {
      connection_.farewellIs(
         frame( { { "method", "cutOff" },
                  { "params", { { "reason", "too much is waiting to be read" } } } } ) );
   }

 private:
   void handleFrame( std::string_view text );
   Json serve( const std::string & method, const Json & params, const Json & id );
   Json watch( const Json & params );
   Json unwatch( const Json & params );
   Json command( const Json & params, const Json & id );
   Json status() const;

   ControlServer & server_;
   Connection connection_;
   std::map< std::string, Lum::Ptr< StateWatch > > watches_;
};

void
ControlServer::Client::handleFrame( std::string_view text ) {
   const Json request = Json::parse( text, nullptr, false );
   if ( request.is_discarded() ) {
      connection_.send( errorFrame( nullptr, parseError, "the frame is no JSON" ) );
      return;
   }
   const Json id = request.is_object() ? request.value( "id", Json() ) : Json();
   try {
      if ( !request.is_object() || request.value( "jsonrpc", Json() ) != "2.0"
           || !request.value( "method", Json() ).is_string() ) {
         throw RpcFailure{ invalidRequest, "the frame is no JSON-RPC 2.0 request" };
      }
      const Json params = request.value( "params", Json::object() );
      Json result = serve( request[ "method" ].get< std::string >(), params, id );
      if ( !id.is_null() ) {
         connection_.send( frame( { { "id", id }, { "result", std::move( result ) } } ) );
      }
   } catch ( const RpcFailure & failure ) {
      connection_.send( errorFrame( id, failure.code, failure.text ) );
   } catch ( const std::runtime_error & error ) {
      connection_.send( errorFrame( id, serverError, error.what() ) );
   }
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
   if ( method == "load" ) {
      server_.load_( param< Json >( params, "lab" ) );
      return true;
   }
   if ( method == "status" ) {
      return status();
   }
   throw RpcFailure{ methodNotFound, "there is no method \"" + method + "\"" };
}

Json
ControlServer::Client::watch( const Json & params ) {
   Json states = Json::object();
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      const auto entity = server_.view_.find( path );
      if ( !entity ) {
         throw RequestError( "nothing at \"" + path + "\"" );
      }
      states[ path ] = server_.view_.get( path );
      watches_[ path ] = Lum::make< StateWatch >( path, entity, [ this ]( const Json & change ) {
         connection_.send( frame( { { "method", "change" }, { "params", change } } ) );
      } );
   }
   return states;
}

Json
ControlServer::Client::unwatch( const Json & params ) {
   for ( const auto & path : param< std::vector< std::string > >( params, "paths" ) ) {
      watches_.erase( path );
   }
   return true;
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
      connection_.send(
         frame( { { "method", "output" }, { "params", { { "id", id }, { "text", piece } } } } ) );
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
}

ControlServer::~ControlServer() {
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
