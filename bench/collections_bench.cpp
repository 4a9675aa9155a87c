/// The keyed collections beside `boost::unordered_flat_map` and `std::unordered_map`: the same
/// keys, payloads and hash; 10^3, 10^5 and 10^6 elements.
///
/// Time is per element throughout (items_per_second). `worst_ns` is the longest single operation
/// of a whole fill or emptying, the best of three;
/// `bytes_per_element` is what the heap gave out.

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "CollectionsUnderTest.h"

namespace bench {
namespace {

template< class Kind >
std::vector< typename Kind::Key > keysFrom( std::uint64_t first, std::uint64_t count ) {
   std::vector< typename Kind::Key > keys;
   for ( std::uint64_t n = 0; n < count; ++n ) { keys.push_back( Kind::key( first + n ) ); }
   std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 7 ) );
   return keys;
}

template< class Collection, class Keys >
void fill( Collection & collection, const Keys & keys ) {
   const typename Collection::Value value{};
   for ( const auto & key : keys ) { collection.insert( key, value ); }
}

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
   auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 8 ) );
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
   auto order = keys;
   std::shuffle( order.begin(), order.end(), std::mt19937_64( 8 ) );
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

/// The first pass after all elements changed: ours has to sort its segments.
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

template< class Operation >
double longest( std::size_t count, Operation operation ) {
   double worst = 0;
   double before = threadNanoseconds();
   for ( std::size_t i = 0; i < count; ++i ) {
      operation( i );
      const double after = threadNanoseconds();
      worst = std::max( worst, after - before );
      before = after;
   }
   return worst;
}

template< template< class > class Of, class Kind >
void worstSingle( benchmark::State & state ) {
   const auto keys = keysFrom< Kind >( 0, sizeOf( state ) );
   double insertion = 1e18;
   double erasure = 1e18;
   for ( auto _ : state ) {
      Of< Kind > collection;
      const typename Kind::Value value{};
      insertion = std::min( insertion, longest( keys.size(), [&]( std::size_t i ) {
                               collection.insert( keys[i], value );
                            } ) );
      erasure = std::min(
         erasure, longest( keys.size(), [&]( std::size_t i ) { collection.erase( keys[i] ); } ) );
   }
   state.counters["worst_insert_ns"] = insertion;
   state.counters["worst_erase_ns"] = erasure;
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
#define FOR_COLLECTIONS( operation, Kind )                                                         \
   FOR_SIZES( operation, Ours, Kind );                                                             \
   FOR_SIZES( operation, Flat, Kind );                                                             \
   FOR_SIZES( operation, Std, Kind )
#define FOR_KINDS( operation )                                                                     \
   FOR_COLLECTIONS( operation, NumberToPayload );                                                  \
   FOR_COLLECTIONS( operation, TextToNumber )

FOR_KINDS( lookupHit );
FOR_KINDS( lookupMiss );
FOR_KINDS( insert );
FOR_KINDS( erase );
FOR_KINDS( iterate );
FOR_KINDS( iterateFirst );
FOR_KINDS( eraseWhileIterating );

#define ONCE( operation, Of, Kind )                                                                \
   BENCHMARK( operation< Of, Kind > )->Arg( 1000000 )->Iterations( 3 )
ONCE( worstSingle, Ours, NumberToPayload );
ONCE( worstSingle, Flat, NumberToPayload );
ONCE( worstSingle, Std, NumberToPayload );
ONCE( memory, Ours, NumberToPayload );
ONCE( memory, Flat, NumberToPayload );
ONCE( memory, Std, NumberToPayload );
ONCE( memory, Ours, TextToNumber );
ONCE( memory, Flat, TextToNumber );
ONCE( memory, Std, TextToNumber );

} // namespace
} // namespace bench
