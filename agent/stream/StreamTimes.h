/// What time brings to the streams of a service: a tick now and then, and an end to their draining.
///
/// Owner      the agent; goes before the streams
/// Thread     event loop only

#pragma once

#include "agent/EventLoop.h"

#include <asio/steady_timer.hpp>
#include <chrono>

namespace VeloAgent {

/// `Streams` has tick(), tickTime(), drain() and closeNow().
template< typename Streams >
class StreamTimes {
 public:
   StreamTimes( EventLoop & loop, Streams & streams )
      : streams_( streams ), ticks_( loop.context() ), deadline_( loop.context() ) {}

   /// Once.
   void begin() {
      streams_.tick();
      ticks_.expires_after( streams_.tickTime() );
      ticks_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
         if ( !error ) { begin(); }
      } ) );
   }

   /// The streams drain, for so long at most.
   void end( std::chrono::milliseconds drainTime ) {
      streams_.drain();
      deadline_.expires_after( drainTime );
      deadline_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
         if ( !error ) { streams_.closeNow(); }
      } ) );
   }

 private:
   Streams & streams_;
   asio::steady_timer ticks_;
   asio::steady_timer deadline_;
};

} // namespace VeloAgent
