#pragma once

#include "tools/state/StateTypes.h"

#include <string>

/// JSON-RPC 2.0, as far as the control socket speaks it.
namespace Service {

using State::Json;

enum RpcError {
   parseError = -32700,
   invalidRequest = -32600,
   methodNotFound = -32601,
   invalidParams = -32602,
   serverError = -32000
};

/// A request that is answered by an error of that code.
struct RpcFailure {
   int code;
   std::string text;
};

inline std::string
errorFrame( const Json & id, int code, const std::string & text ) {
   return State::text( { { "jsonrpc", "2.0" },
                         { "id", id },
                         { "error", { { "code", code }, { "message", text } } } } );
}

inline std::string
notificationFrame( const char * method, Json params ) {
   return State::text(
      { { "jsonrpc", "2.0" }, { "method", method }, { "params", std::move( params ) } } );
}

/// What stands before the result in its frame; "}" stands behind it.
inline std::string
resultPrefix( const Json & id ) {
   return R"({"jsonrpc":"2.0","id":)" + State::text( id ) + R"(,"result":)";
}

inline bool
isRequest( const Json & json ) {
   return json.is_object() && json.value( "jsonrpc", Json() ) == "2.0"
          && json.value( "method", Json() ).is_string();
}

/// Throws RpcFailure where there is none of that type.
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
