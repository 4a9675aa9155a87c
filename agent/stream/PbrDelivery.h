/// The way of the PBR counters from the library to the clients, put together, with the time that
/// passes on it.
///
///    manager ──► PbrFanout ──► PbrStreams   clients that call
///                        └───► PbrLines     standard output, if somebody wants it
///
/// Owner      the agent; outlives the server
/// Thread     event loop only

#pragma once

#include "agent/EventLoop.h"
#include "agent/stream/PbrLines.h"
#include "agent/stream/PbrStreams.h"

#include <asio/steady_timer.hpp>
#include <functional>
#include <optional>

namespace VeloAgent {

class PbrDelivery {
 public:
   /// What it delivers from and to. All of it outlives this.
   struct Parts {
      EventLoop & loop;
      const Lumo::Ptr< Oru::TaskScheduler > & scheduler;
      VeloSdkRpc::PbrPolicyCountersMgr & counters;
      WatchingClients & clients;
      const LineFormat * format; ///< Of the lines; null: there are none.
      Output & output;
   };

   PbrDelivery( const Parts & parts, const StreamOptions & options );

   /// The mounts are complete.
   void begin();

   /// Everybody is sent what is pending, within the drain time, and the streams are closed. Calls
   /// `written` once, when standard output has all its lines, or the time is over; at once where
   /// there are none.
   void end( std::function< void() > written );

   PbrFanout & fanout() { return *fanout_; }
   PbrStreams & streams() { return streams_; }
   /// Null: nobody wants any.
   PbrLines * lines() { return lines_ ? &*lines_ : nullptr; }

 private:
   void tick();
   void linesEnd();

   VeloSdkRpc::PbrPolicyCountersMgr & counters_;
   const StreamOptions options_;
   const Lumo::Ptr< PbrFanout > fanout_;
   std::optional< PbrLines > lines_;
   PbrStreams streams_;
   asio::steady_timer ticks_;
   asio::steady_timer deadline_;
   std::function< void() > written_;
};

} // namespace VeloAgent
