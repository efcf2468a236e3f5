#pragma once

#include "tools/service/Client.h"
#include "tools/service/StateView.h"

#include <string>

namespace IgpFeed {

using Json = nlohmann::json;

/// Where the state of the agent is read and written. Every operation throws std::runtime_error when
/// it is out of reach, or refuses.
class StateAccess {
 public:
   virtual ~StateAccess() = default;
   /// False once the other side is gone. What it holds then is anybody's guess.
   virtual bool isOpen() const = 0;
   /// The entity there, as its fields.
   virtual Json entity( const std::string & path ) = 0;
   /// The table there, as its collections; made where there is none.
   virtual Json table( const std::string & path ) = 0;
   /// Merges the patch (RFC 7396) into the entity or table there.
   virtual void patch( const std::string & path, const Json & patch ) = 0;
};

/// Over the control socket of a running agent.
class SocketState : public StateAccess {
 public:
   explicit SocketState( const std::string & socketPath ) : client_( socketPath ) {}

   bool isOpen() const override { return client_.isOpen(); }
   Json entity( const std::string & path ) override {
      return client_.call( "get", { { "path", path } } ).at( "value" );
   }
   Json table( const std::string & path ) override {
      patch( path, Json::object() );
      return entity( path );
   }
   void patch( const std::string & path, const Json & patch ) override {
      client_.call( "patch", { { "path", path }, { "patch", patch } } );
   }

 private:
   Service::Client client_;
};

/// In stores of this process.
class ViewState : public StateAccess {
 public:
   /// The view outlives it.
   explicit ViewState( Service::StateView & view ) : view_( view ) {}

   bool isOpen() const override { return true; }
   Json entity( const std::string & path ) override {
      if ( !view_.find( path ) ) {
         throw Service::RequestError( "nothing at \"" + path + "\"" );
      }
      return view_.typed( path ).at( "value" );
   }
   Json table( const std::string & path ) override {
      patch( path, Json::object() );
      return entity( path );
   }
   void patch( const std::string & path, const Json & patch ) override {
      view_.patch( path, patch );
   }

 private:
   Service::StateView & view_;
};

}
