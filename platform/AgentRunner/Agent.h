#pragma once

#include "platform/Corvdb/EntityManager.h"
#include "platform/Kiv/DumpContext.h"
#include "platform/Kiv/TaskScheduler.h"

#include <string>

namespace AgentRunner {

/// Settings of the loop that drives an agent.
class ActivityManagerConfig : public Lum::Entity {
   LUM_ENTITY( AgentRunner, ActivityManagerConfig );
   LUM_ATTRIBUTE( useEpoll, bool );
};

/// An operation that people may ask an agent for by a line of text.
class CommandCallback : public Lum::Entity {
 public:
   explicit CommandCallback( std::string name ) : name_( std::move( name ) ) {}
   const std::string & name() const noexcept { return name_; }
   /// Writes the answer to `fd`, which stays the caller's.
   virtual void handleCommand( int fd, const std::string & command ) = 0;

 private:
   std::string name_;
};

/// Delivers named commands to those who registered for them.
class CommandRequestReactor : public Lum::Entity {
   LUM_ENTITY( AgentRunner, CommandRequestReactor );
   void agentCommandCallbackIs( const Lum::Ptr< CommandCallback > & callback ) {
      callbacks_[ callback->name() ] = callback;
   }
   void agentCommandCallbackDelAll() { callbacks_.clear(); }
   bool agentCommandCallbackHas( const std::string & name ) const {
      return callbacks_.contains( name );
   }
   /// Hands the command over; false where nobody is registered under that name.
   bool command( const std::string & name, int fd, const std::string & text ) const;

 private:
   std::map< std::string, Lum::Ptr< CommandCallback > > callbacks_;
};

/// What the runner gives an agent before it starts.
struct AgentPlatform {
   Lum::Ptr< Corvdb::EntityManager > entityManager;
   Lum::Ptr< Kiv::TaskScheduler > taskScheduler;
   Lum::Ptr< ActivityManagerConfig > activityManagerConfig;
   Lum::Ptr< CommandRequestReactor > commandRequestReactor;
};

/// The base of an agent. The runner sets its platform, then calls `doInit`; the completion of the
/// mount group that the agent closes there calls `doMountsComplete`. `doPrepareToDie` undoes all
/// that the agent did to state that others see.
class Agent : public Lum::Reactor {
 public:
   explicit Agent( std::string name ) : name_( std::move( name ) ) {}

   const std::string & name() const noexcept { return name_; }
   void platformIs( AgentPlatform platform ) { platform_ = std::move( platform ); }
   const Lum::Ptr< Corvdb::EntityManager > & entityManager() const {
      return platform_.entityManager;
   }
   const Lum::Ptr< Kiv::TaskScheduler > & taskScheduler() const { return platform_.taskScheduler; }
   const Lum::Ptr< ActivityManagerConfig > & activityManagerConfig() const {
      return platform_.activityManagerConfig;
   }
   const Lum::Ptr< CommandRequestReactor > & commandRequestReactor() const {
      return platform_.commandRequestReactor;
   }

   virtual void doInit() = 0;
   virtual void doMountsComplete( Corvdb::MountStatus status,
                                  const Lum::Ptr< Corvdb::EntityManager > & entityManager ) = 0;
   virtual void dumpState( Kiv::DumpContext & context, int indent ) const = 0;

 private:
   std::string name_;
   AgentPlatform platform_;
};

/// The factory that an agent library exports as the C symbol "agentFactory".
using AgentFactory = Agent * (*)( const char * name );

}
