#include "agent/stream/MplsStreams.h"

#include "VeloSdkRpc/MplsRouteHwProgrammingWatcher.h"

#include <algorithm>
#include <fmt/format.h>

namespace VeloAgent {

using namespace std::chrono_literals;
using Plink::Fib::FecId;

MplsStreams::MplsStreams( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                          VeloSdkRpc::MplsRouteHwProgrammingWatcher & watcher,
                          const NexthopGroup::NexthopGroupMap & groups, WatchingClients & clients,
                          const StreamOptions & options, Oru::Clock & clock )
   : task_( Lumo::makeNode< Composing >( scheduler, *this ) ),
     watcher_( watcher ),
     groups_( groups ),
     clients_( clients ),
     options_( options ),
     clock_( clock ),
     listener_{ .ready = [this] { task_->scheduleTask(); },
                .ended = [this]( WatchingClients::Id id ) { streams_.erase( id ); } } {}

MplsStreams::~MplsStreams() { watcher_.stopWatching(); }

void MplsStreams::start() {
   watcher_.startWatching( [this]( const Mpls::Hardware::Route & route ) { told( route ); } );
}

void MplsStreams::told( const Mpls::Hardware::Route & route ) {
   if ( streams_.empty() ) { return; }
   const auto group = FecId::fecIdToNexthopGroupId( route.ackInfo()->fecId() );
   const NamedMplsRoute named{ route, groups_.nexthopGroupName()[group]->value() };
   for ( const auto & [id, stream] : streams_ ) { stream->routeIs( named ); }
}

void MplsStreams::open( MplsCall & call ) {
   if ( draining_ ) { return call.close( StreamEnd::unavailable, "the agent shuts down" ); }
   if ( streams_.size() >= options_.mostClients ) {
      return call.close( StreamEnd::exhausted,
                         fmt::format( "{} clients are being served, and no more than that may be",
                                      streams_.size() ) );
   }
   auto stream = std::make_unique< MplsStream >( call, clients_, options_, clock_, listener_ );
   const WatchingClients::Id id = stream->id();
   streams_.emplace( id, std::move( stream ) );
   listener_.ready();
}

/// Those that are ready have their turn one after the other, a message each; where a slice ended,
/// the next one goes on.
void MplsStreams::compose() {
   for ( std::size_t left = streams_.size(); left > 0; --left ) {
      auto next = streams_.upper_bound( lastServed_ );
      if ( next == streams_.end() ) { next = streams_.begin(); }
      lastServed_ = next->first;
      if ( !next->second->ready() ) { continue; }
      next->second->compose();
      task_->taskWorkCountInc( 1 );
      if ( left > 1 && task_->taskShouldYield() ) { return task_->scheduleTask(); }
   }
}

void MplsStreams::tick() {
   for ( const auto & [id, stream] : streams_ ) { stream->closeIfStuck(); }
}

/// Late by a quarter at most, and never busy with it.
std::chrono::milliseconds MplsStreams::tickTime() const {
   return std::clamp< std::chrono::milliseconds >( options_.stallTime / 4, 10ms, 1s );
}

void MplsStreams::drain() {
   draining_ = true;
   for ( const auto & [id, stream] : streams_ ) { stream->closeWhenTold(); }
}

void MplsStreams::closeNow() {
   for ( const auto & [id, stream] : streams_ ) { stream->closeNow(); }
}

} // namespace VeloAgent
