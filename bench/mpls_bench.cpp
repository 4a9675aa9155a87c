/// MPLS route notifications at 10^3, 10^5 and 10^6 routes, a hundred to a next-hop group.
///
/// `ns` is per route, in this thread's own time. `reference_ns` is the same by a loop written by
/// hand for just this job (Mpls.h), in the same run, and `ratio` is the first over the second.
/// `bytes` is what the heap gave out per parked route, `reference_bytes` likewise.

#include <memory>

#include "Measure.h"
#include "Mpls.h"

namespace bench {
namespace {

constexpr std::size_t kRoutesPerGroup = 100;

/// The machine and the reference with as many routes. Made once per size.
struct BothWorlds {
   explicit BothWorlds( std::size_t routes )
      : plan( routes, routes / kRoutesPerGroup ), world( plan ), reference( plan ) {}

   static BothWorlds & of( const benchmark::State & state ) {
      const auto routes = static_cast< std::size_t >( state.range( 0 ) );
      static std::unique_ptr< BothWorlds > present;
      if ( !present || present->plan.labels.size() != routes ) {
         present.reset();
         present = std::make_unique< BothWorlds >( routes );
      }
      return *present;
   }

   /// Every route is acknowledged in its next version.
   template< class Side >
   void acknowledgeAll( Side & side ) const {
      for ( const std::uint32_t label : plan.labels ) {
         side.put( plan.acknowledged( label, version ) );
      }
   }
   template< class Side >
   void nameAll( Side & side, const Lumo::String & name ) const {
      for ( std::uint32_t group = 0; group < plan.groups(); ++group ) { side.name( group, name ); }
   }
   template< class Work >
   void onBoth( Work && work ) {
      work( world );
      work( reference );
   }

   const MplsPlan plan;
   MplsWorld world;
   MplsReference reference;
   std::uint32_t version = 0;
};

void expect( benchmark::State & state, bool asItShouldBe, const char * what ) {
   if ( !asItShouldBe ) { state.SkipWithError( what ); }
}

/// A new version is acknowledged -> the client has been told.
void changeToCallback( benchmark::State & state ) {
   BothWorlds & both = BothWorlds::of( state );
   const std::size_t routes = both.plan.labels.size();
   both.onBoth( [&]( auto & side ) { both.nameAll( side, "spine" ); } );
   SideBySide times( state, routes );
   for ( auto _ : state ) {
      ++both.version;
      both.world.client.told = both.reference.client.told = 0;
      times.round( [&] { both.acknowledgeAll( both.world ); },
                   [&] { both.acknowledgeAll( both.reference ); } );
      expect( state, both.world.client.told == routes, "routes have not been told" );
      expect( state, both.reference.client.told == routes, "the reference has not told routes" );
   }
   both.onBoth( [&]( auto & side ) { both.nameAll( side, "" ); } );
}

/// Every route is acknowledged while no group has a name; then all groups are named.
class ParkThenRelease {
 public:
   explicit ParkThenRelease( benchmark::State & state )
      : state_( state ), both_( BothWorlds::of( state ) ) {}

   std::size_t routes() const { return both_.plan.labels.size(); }

   template< class Times >
   void park( Times && times ) {
      ++both_.version;
      both_.world.client.told = both_.reference.client.told = 0;
      times( [&] { both_.acknowledgeAll( both_.world ); },
             [&] { both_.acknowledgeAll( both_.reference ); } );
      expect( state_, both_.world.parked() == routes(), "routes have not been parked" );
      expect( state_, both_.reference.parked() == routes(), "the reference has not parked" );
   }
   template< class Times >
   void release( Times && times ) {
      times( [&] { both_.nameAll( both_.world, "spine" ); },
             [&] { both_.nameAll( both_.reference, "spine" ); } );
      expect( state_, both_.world.client.told == routes(), "routes have not been told" );
      expect( state_, both_.reference.client.told == routes(), "the reference has not told" );
      both_.onBoth( [&]( auto & side ) { both_.nameAll( side, "" ); } );
   }

 private:
   benchmark::State & state_;
   BothWorlds & both_;
};

/// What is not timed.
const auto untimed = []( auto && work, auto && referenceWork ) {
   work();
   referenceWork();
};

void park( benchmark::State & state ) {
   ParkThenRelease both( state );
   double bytes = 0, referenceBytes = 0;
   const auto weighed = []( double & grown, auto && work ) {
      const double before = heapBytes();
      work();
      grown = heapBytes() - before;
   };
   SideBySide times( state, both.routes() );
   for ( auto _ : state ) {
      both.park( [&]( auto && work, auto && referenceWork ) {
         times.round( [&] { weighed( bytes, work ); },
                      [&] { weighed( referenceBytes, referenceWork ); } );
      } );
      both.release( untimed );
   }
   state.counters["bytes"] = bytes / static_cast< double >( both.routes() );
   state.counters["reference_bytes"] = referenceBytes / static_cast< double >( both.routes() );
}

void release( benchmark::State & state ) {
   ParkThenRelease both( state );
   SideBySide times( state, both.routes() );
   for ( auto _ : state ) {
      both.park( untimed );
      both.release(
         [&]( auto && work, auto && referenceWork ) { times.round( work, referenceWork ); } );
   }
}

/// One group with a hundred parked routes is named, while as many as the argument says are parked
/// elsewhere.
void nameOneGroup( benchmark::State & state ) {
   const auto elsewhere = static_cast< std::size_t >( state.range( 0 ) );
   const MplsPlan others( elsewhere, elsewhere / kRoutesPerGroup );
   MplsWorld world( others );
   MplsReference reference( others );
   for ( const std::uint32_t label : others.labels ) {
      world.put( others.acknowledged( label, 1 ) );
      reference.put( others.acknowledged( label, 1 ) );
   }
   const std::uint32_t group = 1'000'000;
   std::uint32_t version = 0;
   SideBySide times( state, kRoutesPerGroup );
   for ( auto _ : state ) {
      ++version;
      world.client.told = reference.client.told = 0;
      world.name( group, "" );
      reference.name( group, "" );
      for ( std::uint32_t n = 0; n < kRoutesPerGroup; ++n ) {
         const Route route( RouteKey( 2'000'000 + n ),
                            AckInfo( FecId::nexthopGroupIdToFecId( group ), version, 1, 0 ) );
         world.put( route );
         reference.put( route );
      }
      times.round( [&] { world.name( group, "spine" ); },
                   [&] { reference.name( group, "spine" ); } );
      expect( state, world.client.told == kRoutesPerGroup, "routes have not been told" );
      expect( state, reference.client.told == kRoutesPerGroup, "the reference has not told" );
   }
   expect( state, world.parked() == elsewhere, "others have been touched" );
}

/// Sizes are the outer loop: what is made once per size is used by all before the next.
[[maybe_unused]] const bool registered = [] {
   const auto add = []( const char * name, void ( *measured )( benchmark::State & ), int size,
                        int rounds ) {
      benchmark::RegisterBenchmark( name, measured )
         ->Arg( size )
         ->Iterations( rounds )
         ->UseManualTime()
         ->Unit( benchmark::kMillisecond );
   };
   const std::pair< int, int > roundsBySize[] = { { 1000, 301 }, { 100'000, 9 }, { 1'000'000, 3 } };
   for ( const auto & [routes, rounds] : roundsBySize ) {
      add( "changeToCallback", changeToCallback, routes, rounds );
      add( "park", park, routes, rounds );
      add( "release", release, routes, rounds );
   }
   for ( const int elsewhere : { 1000, 1'000'000 } ) {
      add( "nameOneGroup", nameOneGroup, elsewhere, 2001 );
   }
   return true;
}();

} // namespace
} // namespace bench
