#include "agent/SyntheticChanges.h"
#include "agent/test/AppliedChanges.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace VeloAgent {
namespace {

constexpr SyntheticOptions kSmall = {
   .policies = 4, .classes = 5, .changesPerSecond = 0, .churnPercent = 30, .seed = 7 };

template< typename Kind >
long countOf( const CounterChanges & changes ) {
   return std::count_if( changes.begin(), changes.end(), []( const CounterChange & change ) {
      return std::holds_alternative< Kind >( change );
   } );
}

CounterChanges sequence( const SyntheticOptions & options, std::size_t portion,
                         std::size_t least ) {
   SyntheticChanges source( options );
   CounterChanges all;
   while ( all.size() < least ) {
      const CounterChanges more = source.next( portion );
      all.insert( all.end(), more.begin(), more.end() );
   }
   all.resize( least );
   return all;
}

TEST( SyntheticChanges, FirstEveryClassAppearsAtZero ) {
   SyntheticChanges source( kSmall );
   const CounterSnapshot population = applied( source.next( source.populationSize() ) );
   EXPECT_EQ( population.size(), 4U );
   for ( const auto & [policy, classes] : population ) {
      EXPECT_EQ( classes.size(), 5U );
      for ( const auto & [name, counters] : classes ) { EXPECT_EQ( counters, Counters() ); }
   }
}

TEST( SyntheticChanges, ASeedIsASequence ) {
   EXPECT_EQ( sequence( kSmall, 10, 1000 ), sequence( kSmall, 10, 1000 ) );
   SyntheticOptions other = kSmall;
   other.seed = 8;
   EXPECT_NE( sequence( kSmall, 10, 1000 ), sequence( other, 10, 1000 ) );
}

TEST( SyntheticChanges, HowTheSequenceIsCutChangesNothing ) {
   EXPECT_EQ( sequence( kSmall, 1, 1000 ), sequence( kSmall, 333, 1000 ) );
}

TEST( SyntheticChanges, WithoutChurnCountersOnlyGoUp ) {
   SyntheticOptions steady = kSmall;
   steady.churnPercent = 0;
   CounterSnapshot now;
   for ( const CounterChange & change : sequence( steady, 100, 1000 ) ) {
      const auto & set = std::get< CountersSet >( change );
      Counters & counters = now[set.policy][set.className];
      EXPECT_GE( set.counters.packets, counters.packets );
      EXPECT_GE( set.counters.bytes, 64 * set.counters.packets );
      EXPECT_LE( set.counters.bytes, 1500 * set.counters.packets );
      counters = set.counters;
   }
}

TEST( SyntheticChanges, ChurnRemovesAndBringsBackClassesAndPolicyMaps ) {
   const CounterChanges changes = sequence( kSmall, 100, 10'000 );
   EXPECT_GT( countOf< ClassRemoved >( changes ), 500 );
   EXPECT_GT( countOf< PolicyRemoved >( changes ), 20 );

   AppliedChanges tree;
   std::size_t most = 0;
   std::size_t least = 20;
   for ( std::size_t n = 0; n < changes.size(); ++n ) {
      tree.apply( changes[n] );
      std::size_t classes = 0;
      for ( const auto & [policy, present] : tree.now() ) { classes += present.size(); }
      if ( n >= 5000 ) {
         most = std::max( most, classes );
         least = std::min( least, classes );
      }
   }
   EXPECT_GT( most, 15U ) << "what is removed comes back";
   EXPECT_LT( least, 15U );
}

TEST( SyntheticChanges, OnlyWhatIsThereIsRemoved ) {
   AppliedChanges tree;
   for ( const CounterChange & change : sequence( kSmall, 100, 10'000 ) ) {
      if ( const auto * removed = std::get_if< ClassRemoved >( &change ) ) {
         ASSERT_TRUE( tree.now().at( removed->policy ).contains( removed->className ) );
      }
      if ( const auto * removed = std::get_if< PolicyRemoved >( &change ) ) {
         ASSERT_TRUE( tree.now().contains( removed->policy ) );
      }
      tree.apply( change );
   }
}

TEST( SyntheticChanges, ASingleClassWorks ) {
   const CounterChanges changes = sequence(
      { .policies = 1, .classes = 1, .changesPerSecond = 0, .churnPercent = 100, .seed = 1 }, 1,
      100 );
   for ( std::size_t n = 0; n < changes.size(); ++n ) {
      EXPECT_EQ( std::holds_alternative< CountersSet >( changes[n] ), n % 2 == 0 ) << n;
   }
}

} // namespace
} // namespace VeloAgent
