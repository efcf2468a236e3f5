#pragma once

#include "tests/Lab.h"

#include <functional>
#include <vector>

/// Whoever reads what the agent publishes, and answers at once: hears of every change of it, also
/// of what comes later, from inside of the notification.
class Answering : public Lum::Reactor {
   LUM_ENTITY( Test, Answering );
   using Answer = std::function< void() >;
   Answering( TestLab & lab, Answer answer );
   ~Answering() override { tables_.listenerIs( this, {} ); }

 private:
   void handleTable( const std::string & path );
   void handleNeeds( const Lum::String & name );
   void handleChange( const Lum::AnyChange & ) { answer_(); }
   void hear( const Lum::Ptr< Lum::Entity > & entity );

   Zorch::TableStore & tables_;
   const Answer answer_;
   std::vector< Lum::Ptr< const Lum::Dir > > needs_;
};
