/// The keyed collections beside `boost::unordered_flat_map` and `std::unordered_map`: the same
/// keys, payloads and hash; 10^3, 10^5 and 10^6 elements.
///
/// Time is per element throughout (items_per_second). `worst_*_ns` is the longest single operation
/// of a whole fill or emptying, beside the longest of as many times nothing at all;
/// `bytes_per_element` is what the heap gave out.

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include <benchmark/benchmark.h>

#include "CollectionsUnderTest.h"
#include "Keys.h"

namespace bench {
namespace {

/// The same number of operations for every size, in a new order each round.
template< class State >
std::uint64_t sizeOf( const State & state ) {
   return static_cast< std::uint64_t >( state.range( 0 ) );
}
void countItems( benchmark::State & state, std::uint64_t perRound ) {
   state.SetItemsProcessed( static_cast< std::int64_t >( perRound ) * state.iterations() );
}

template< template< class > class Of, class Kind >
void lookupHit( benchmark::State & state ) {
   Of< Kind > collection;
   fill( collection, keysFrom< Kind >( 0, sizeOf( state ) ) );
   const auto keys = inAnotherOrder( keysFrom< Kind >( 0, sizeOf( state ) ) );
   for ( auto _ : state ) {
      for ( const auto & key : keys ) { benchmark::DoNotOptimize( collection.has( key ) ); }
   }
   countItems( state, keys.size() );
}

template< template< class > class Of, class Kind >
void lookupMiss( benchmark::State & state ) {
   Of< Kind > collection;
   fill( collection, keysFrom< Kind >( 0, sizeOf( state ) ) );
   const auto keys = keysFrom< Kind >( sizeOf( state ), sizeOf( state ) );
   for ( auto _ : state ) {
      for ( const auto & key : keys ) { benchmark::DoNotOptimize( collection.has( key ) ); }
   }
   countItems( state, keys.size() );
}

template< template< class > class Of, class Kind >
void insert( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   for ( auto _ : state ) {
      auto * const collection = new Of< Kind >;
      fill( *collection, keys );
      state.PauseTiming();
      delete collection;
      state.ResumeTiming();
   }
   countItems( state, keys.size() );
}

template< template< class > class Of, class Kind >
void erase( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   const auto order = inAnotherOrder( keys );
   for ( auto _ : state ) {
      state.PauseTiming();
      Of< Kind > collection;
      fill( collection, keys );
      state.ResumeTiming();
      for ( const auto & key : order ) { collection.erase( key ); }
   }
   countItems( state, keys.size() );
}

template< template< class > class Of, class Kind >
void iterate( benchmark::State & state ) {
   Of< Kind > collection;
   fill( collection, keysFrom< Kind >( 0, sizeOf( state ) ) );
   for ( auto _ : state ) { benchmark::DoNotOptimize( collection.iterate() ); }
   countItems( state, sizeOf( state ) );
}

/// The first pass after all elements changed: ours has to sort its lines.
template< template< class > class Of, class Kind >
void iterateFirst( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   for ( auto _ : state ) {
      state.PauseTiming();
      Of< Kind > collection;
      fill( collection, keys );
      state.ResumeTiming();
      benchmark::DoNotOptimize( collection.iterate() );
      state.PauseTiming();
      collection = {};
      state.ResumeTiming();
   }
   countItems( state, sizeOf( state ) );
}

template< template< class > class Of, class Kind >
void eraseWhileIterating( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   for ( auto _ : state ) {
      state.PauseTiming();
      Of< Kind > collection;
      fill( collection, keys );
      state.ResumeTiming();
      collection.eraseWhileIterating();
   }
   countItems( state, sizeOf( state ) );
}

/// In this thread's own time: what other programs do to the machine is not the collection's fault.
double threadNanoseconds() {
   timespec now;
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &now );
   return static_cast< double >( now.tv_sec ) * 1e9 + static_cast< double >( now.tv_nsec );
}

/// The time of each operation of a round, the best of all rounds: an interrupt hits an operation
/// once, a step of the collection's own that is long is long in every round.
class SingleOperations {
 public:
   explicit SingleOperations( std::size_t count ) : best_( count, 1e18 ) {}

   template< class Operation >
   void round( Operation operation ) {
      double before = threadNanoseconds();
      for ( std::size_t i = 0; i < best_.size(); ++i ) {
         operation( i );
         const double after = threadNanoseconds();
         best_[i] = std::min( best_[i], after - before );
         before = after;
      }
   }
   double worst() const { return *std::max_element( best_.begin(), best_.end() ); }

 private:
   std::vector< double > best_;
};

template< template< class > class Of, class Kind >
void worstSingle( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   SingleOperations nothing( keys.size() );
   SingleOperations insertions( keys.size() );
   SingleOperations erasures( keys.size() );
   for ( auto _ : state ) {
      Of< Kind > collection;
      const typename Kind::Value value{};
      nothing.round( []( std::size_t ) {} );
      insertions.round( [&]( std::size_t i ) { collection.insert( keys[i], value ); } );
      erasures.round( [&]( std::size_t i ) { collection.erase( keys[i] ); } );
   }
   state.counters["worst_insert_ns"] = insertions.worst();
   state.counters["worst_erase_ns"] = erasures.worst();
   state.counters["worst_nothing_ns"] = nothing.worst();
}

/// After a fill, and with one element in sixteen left after it.
template< template< class > class Of, class Kind >
void memory( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   const auto heap = [] {
      const auto info = mallinfo2();
      return static_cast< double >( info.uordblks + info.hblkhd );
   };
   double full = 0;
   double sparse = 0;
   for ( auto _ : state ) {
      const double before = heap();
      Of< Kind > collection;
      fill( collection, keys );
      full = ( heap() - before ) / static_cast< double >( keys.size() );
      for ( std::size_t i = 0; i < keys.size(); ++i ) {
         if ( i % 16 != 0 ) { collection.erase( keys[i] ); }
      }
      sparse = ( heap() - before ) / ( static_cast< double >( keys.size() ) / 16 );
   }
   state.counters["bytes_per_element"] = full;
   state.counters["bytes_per_survivor"] = sparse;
}

#define FOR_SIZES( operation, Of, Kind )                                                           \
   BENCHMARK( operation< Of, Kind > )->Arg( 1000 )->Arg( 100000 )->Arg( 1000000 )
#define FOR_COLLECTIONS( operation )                                                               \
   FOR_SIZES( operation, Ours, NumberToPayload );                                                  \
   FOR_SIZES( operation, Dense, NumberToPayload );                                                 \
   FOR_SIZES( operation, Flat, NumberToPayload );                                                  \
   FOR_SIZES( operation, Std, NumberToPayload );                                                   \
   FOR_SIZES( operation, Ours, TextToNumber );                                                     \
   FOR_SIZES( operation, Flat, TextToNumber );                                                     \
   FOR_SIZES( operation, Std, TextToNumber )

FOR_COLLECTIONS( lookupHit );
FOR_COLLECTIONS( lookupMiss );
FOR_COLLECTIONS( insert );
FOR_COLLECTIONS( erase );
FOR_COLLECTIONS( iterate );
FOR_COLLECTIONS( iterateFirst );
FOR_COLLECTIONS( eraseWhileIterating );

#define ONCE( operation, Of, Kind )                                                                \
   BENCHMARK( operation< Of, Kind > )->Arg( 1000000 )->Iterations( 5 )
#define FOR_COLLECTIONS_ONCE( operation )                                                          \
   ONCE( operation, Ours, NumberToPayload );                                                       \
   ONCE( operation, Dense, NumberToPayload );                                                      \
   ONCE( operation, Flat, NumberToPayload );                                                       \
   ONCE( operation, Std, NumberToPayload );                                                        \
   ONCE( operation, Ours, TextToNumber );                                                          \
   ONCE( operation, Flat, TextToNumber );                                                          \
   ONCE( operation, Std, TextToNumber )

FOR_COLLECTIONS_ONCE( worstSingle );
FOR_COLLECTIONS_ONCE( memory );

} // namespace
} // namespace bench
