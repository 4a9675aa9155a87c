/// What the service manager that started the agent is told, if one did and wants to know: that it
/// is ready, that it is ending and, as often as it asks for that, that the event loop lives.
///
/// Owner      the agent
/// Thread     event loop only

#pragma once

#include "agent/EventLoop.h"

#include <asio/steady_timer.hpp>
#include <chrono>

namespace VeloAgent {

class ServiceManager {
 public:
   explicit ServiceManager( EventLoop & loop ) : timer_( loop.context() ) {}

   /// Also begins with the signs of life.
   void ready();
   void stopping();

 private:
   void signOfLife();

   asio::steady_timer timer_;
   std::chrono::microseconds interval_{ 0 }; ///< Zero: nobody wants them.
};

} // namespace VeloAgent
