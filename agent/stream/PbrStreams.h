/// All streams of PBR counters: those with a client and those that may still be resumed.
///
/// Owner      the agent
/// Thread     event loop only
/// Invariant  at most StreamOptions::mostClients of them; when that many are there, the one away
///            longest makes room

#pragma once

#include "agent/stream/PbrStream.h"

#include <map>
#include <memory>

namespace velo::rpc::v1 {
class PbrCountersWatchRequest;
} // namespace velo::rpc::v1

namespace VeloAgent {

class PbrStreams {
 public:
   /// All outlive this.
   PbrStreams( PbrFanout & fanout, WatchingClients & clients, const StreamOptions & options,
               Oru::Clock & clock );

   /// A client calls: it gets a new stream or the one that its token is of, or is refused.
   void open( PbrCall & call, const velo::rpc::v1::PbrCountersWatchRequest & request );

   /// What time brings: closes those that are stuck or, while draining, told everything; forgets
   /// those away for too long. To be called every `tickTime()`. O(streams).
   void tick();
   std::chrono::milliseconds tickTime() const;

   /// Every stream is closed once its client was told everything that exists; none is opened any
   /// more. `tickTime()` is shorter from now on.
   void drain();
   /// Closes those still there.
   void closeNow();

   std::size_t size() const { return streams_.size(); }

 private:
   using Streams = std::map< StreamId, std::unique_ptr< PbrStream > >;

   /// False if there is no room.
   bool makeRoom();

   PbrFanout & fanout_;
   WatchingClients & clients_;
   const StreamOptions options_;
   Oru::Clock & clock_;
   Streams streams_;
   bool draining_ = false;
};

} // namespace VeloAgent
