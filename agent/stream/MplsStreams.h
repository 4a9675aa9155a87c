/// One callback for the library, many clients for the agent: every route that the library tells is
/// filed with each of them, who are told it at their own speed.
///
///    library ──route──► with the name of its group ──► stream's backlog ──message──► client
///                                                      stream's backlog ──message──► client
///                                                            composed by a task, in slices
///
/// Owner      the agent
/// Thread     event loop only
/// Cost       a route costs every stream one entry of a keyed collection
/// Invariant  at most StreamOptions::mostClients streams

#pragma once

#include "NexthopGroup/NexthopGroup.h"
#include "agent/stream/MplsStream.h"

#include <map>
#include <memory>

namespace VeloSdkRpc {
class MplsRouteHwProgrammingWatcher;
} // namespace VeloSdkRpc

namespace VeloAgent {

class MplsStreams {
 public:
   /// As urgent as the other fan-out.
   static constexpr Oru::TaskPriority kPriority = 3;

   /// `groups` is the watcher's own map. All outlive this.
   MplsStreams( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                VeloSdkRpc::MplsRouteHwProgrammingWatcher & watcher,
                const NexthopGroup::NexthopGroupMap & groups, WatchingClients & clients,
                const StreamOptions & options, Oru::Clock & clock );
   ~MplsStreams();
   MplsStreams( const MplsStreams & ) = delete;
   MplsStreams & operator=( const MplsStreams & ) = delete;

   /// Begins to watch, for as long as this lives. Once, when the watcher is mounted.
   void start();

   /// A client calls: it is told of all routes from now on, or refused.
   void open( MplsCall & call );

   /// What time brings: closes those that are stuck. To be called every `tickTime()`. O(streams).
   void tick();
   std::chrono::milliseconds tickTime() const;

   /// Every stream is closed once its client was told everything; none is opened any more.
   void drain();
   /// Closes those still there.
   void closeNow();

   std::size_t size() const { return streams_.size(); }

 private:
   void told( const Mpls::Hardware::Route & route );
   void compose();

   class Composing final : public Oru::Task {
    public:
      Composing( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, MplsStreams & streams )
         : Oru::Task( scheduler, kPriority, "MplsFanout" ), streams_( streams ) {}

    private:
      void taskRun() override { streams_.compose(); }

      MplsStreams & streams_;
   };

   const Lumo::Ptr< Composing > task_;
   VeloSdkRpc::MplsRouteHwProgrammingWatcher & watcher_;
   const NexthopGroup::NexthopGroupMap & groups_;
   WatchingClients & clients_;
   const StreamOptions options_;
   Oru::Clock & clock_;
   const MplsStream::Listener listener_;
   std::map< WatchingClients::Id, std::unique_ptr< MplsStream > > streams_;
   WatchingClients::Id lastServed_ = 0;
   bool draining_ = false;
};

} // namespace VeloAgent
