/// The agent as a whole, in a process of its own, with real clients on its Unix socket; 10^5
/// classes. Clients, agent and the writer of the counters share the machine's processors.
///
/// `records_per_second`   what all clients together were told while every class changed again and
///                        again; the writer's part is in the time
/// `bytes_per_record`     of the messages on the wire, without framing
/// `median_us` and so on  from the call that publishes a change to its arrival at the client, at a
///                        steady 10 000 changes a second
/// `bytes_per_client`     growth of the agent's own resident memory, per client in sync

#include "ServedAgent.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {
namespace {

constexpr std::uint32_t kClasses = 100'000;

using Watchers = std::vector< std::unique_ptr< Watcher > >;

Watchers watchers( const ServedAgent & agent, std::int64_t count, bool longKeys = false ) {
   Watchers all;
   for ( std::int64_t n = 0; n < count; ++n ) {
      all.push_back( std::make_unique< Watcher >( agent, longKeys ) );
   }
   for ( const auto & watcher : all ) { watcher->untilInSync(); }
   return all;
}

/// Every class changes -> every client has been told of every class. Argument: clients.
void recordsToClients( benchmark::State & state ) {
   ServedAgent agent;
   std::uint64_t packets = 1;
   agent.publishAll( kClasses, packets );
   const Watchers clients = watchers( agent, state.range( 0 ) );
   for ( auto _ : state ) {
      agent.publishAll( kClasses, ++packets );
      for ( const auto & client : clients ) { client->untilAllCount( kClasses, packets ); }
   }
   state.counters["records_per_second"] =
      benchmark::Counter( static_cast< double >( state.iterations() * state.range( 0 ) * kClasses ),
                          benchmark::Counter::kIsRate );
}
BENCHMARK( recordsToClients )
   ->Arg( 1 )
   ->Arg( 10 )
   ->Iterations( 5 )
   ->UseRealTime()
   ->Unit( benchmark::kMillisecond );

/// The same changes, told by short keys or by long keys. Argument: long keys.
void bytesPerRecord( benchmark::State & state ) {
   ServedAgent agent;
   agent.publishAll( kClasses, 1 );
   const Watchers clients = watchers( agent, 1, state.range( 0 ) != 0 );
   const Watcher & client = *clients.front();
   const std::uint64_t bytes = client.bytes(), records = client.records();
   std::uint64_t packets = 1'000'000;
   for ( auto _ : state ) {
      agent.publishAll( kClasses, ++packets );
      client.untilAllCount( kClasses, packets );
   }
   state.counters["bytes_per_record"] = static_cast< double >( client.bytes() - bytes ) /
                                        static_cast< double >( client.records() - records );
}
BENCHMARK( bytesPerRecord )
   ->Arg( 0 )
   ->Arg( 1 )
   ->Iterations( 3 )
   ->UseRealTime()
   ->Unit( benchmark::kMillisecond );

std::uint64_t nowMicroseconds() {
   return static_cast< std::uint64_t >( std::chrono::duration_cast< std::chrono::microseconds >(
                                           std::chrono::steady_clock::now().time_since_epoch() )
                                           .count() );
}

/// Ten changes each millisecond, whose counters say when they were published.
void publishToClient( benchmark::State & state ) {
   constexpr std::uint32_t kPerTick = 10;
   constexpr std::uint32_t kTicks = 5'000;
   ServedAgent agent;
   agent.publishAll( kClasses, 1 );
   std::vector< double > latencies;
   latencies.reserve( std::size_t{ kPerTick } * kTicks );
   std::mutex mutex;
   Watcher client( agent, false, [&]( const PbrCountersWatchResponse & message ) {
      const std::uint64_t now = nowMicroseconds();
      const std::lock_guard lock( mutex );
      for ( const auto & record : message.batch().records() ) {
         const std::uint64_t published = record.counters().packets();
         if ( published > 1 ) { latencies.push_back( static_cast< double >( now - published ) ); }
      }
   } );
   client.untilInSync();
   for ( auto _ : state ) {
      auto tick = std::chrono::steady_clock::now();
      for ( std::uint32_t n = 0; n < kTicks; ++n ) {
         const std::uint32_t first = n * kPerTick % kClasses;
         agent.publish( first, first + kPerTick, nowMicroseconds() );
         tick += std::chrono::milliseconds( 1 );
         std::this_thread::sleep_until( tick );
      }
   }
   const std::lock_guard lock( mutex );
   std::sort( latencies.begin(), latencies.end() );
   const auto quantile = [&]( double part ) {
      return latencies.at( static_cast< std::size_t >( part * double( latencies.size() - 1 ) ) );
   };
   state.counters["median_us"] = quantile( 0.5 );
   state.counters["p99_us"] = quantile( 0.99 );
   state.counters["p999_us"] = quantile( 0.999 );
}
BENCHMARK( publishToClient )->Iterations( 1 )->UseRealTime()->Unit( benchmark::kMillisecond );

/// Argument: clients.
void memoryPerClient( benchmark::State & state ) {
   ServedAgent agent;
   agent.publishAll( kClasses, 1 );
   { const Watchers first = watchers( agent, 1 ); } // what any client costs once
   const double before = agent.residentBytes();
   for ( auto _ : state ) {
      const Watchers clients = watchers( agent, state.range( 0 ) );
      agent.publishAll( kClasses, 2 );
      for ( const auto & client : clients ) { client->untilAllCount( kClasses, 2 ); }
      state.counters["bytes_per_client"] =
         ( agent.residentBytes() - before ) / static_cast< double >( state.range( 0 ) );
   }
}
BENCHMARK( memoryPerClient )
   ->Arg( 10 )
   ->Iterations( 1 )
   ->UseRealTime()
   ->Unit( benchmark::kMillisecond );

} // namespace
} // namespace bench
