#pragma once

#include "platform/Lum/ActivityLoop.h"

#include <string>

/// What the service tells the manager that started it (sd_notify(3)): that it is ready, that its
/// loop turns, that it stops. Without a manager (NOTIFY_SOCKET is not set) nothing happens.
class ServiceManager {
 public:
   /// Feeds the manager's watchdog (WATCHDOG_USEC) from the loop, twice in its period. The loop
   /// outlives it.
   explicit ServiceManager( Lum::ActivityLoop & loop );
   ~ServiceManager();
   ServiceManager( const ServiceManager & ) = delete;
   ServiceManager & operator=( const ServiceManager & ) = delete;

   void ready() const;
   void stopping() const;

 private:
   void tell( const std::string & state ) const;
   void feed();

   Lum::ActivityLoop & loop_;
   const std::string address_;
   Lum::Seconds period_ = 0;  ///< 0: there is no watchdog
   Lum::ActivityLoop::TimerId timer_{ 0, 0 };
};
