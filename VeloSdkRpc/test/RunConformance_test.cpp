// The replay of draining runs: a run as it should be has no difference, and of every kind of
// difference it tells.

#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BacklogTest.h"

namespace VeloSdkRpc::test {
namespace {

using Item = RecordedRun::Item;
using AskedToYield = RecordedRun::AskedToYield;
using AskedIfOutdated = RecordedRun::AskedIfOutdated;
using Change = RecordedRun::Change;

/// Of keys 1, 2, 3 the first two are handed over, 9 arrives meanwhile, then it must yield.
class ReplayTest : public testing::Test {
 protected:
   ReplayTest() {
      for ( const std::uint64_t key : { 1, 2, 3 } ) { run.before.emplace( key, record( key ) ); }
      run.steps = { Item{ 1, record( 1 ) }, AskedIfOutdated{ false }, AskedToYield{ false },
                    Item{ 2, record( 2 ) }, Change{ 9, record( 9 ) }, AskedIfOutdated{ false },
                    AskedToYield{ true } };
      for ( const std::uint64_t key : { 3, 9 } ) { run.after.emplace( key, record( key ) ); }
      run.bookmarkAfter = 3;
      run.progress = { .yielded = true,
                       .pendingCount = 2,
                       .processedCount = 2,
                       .arrivedCount = 1,
                       .remainingCount = 1,
                       .passCount = 0 };
   }
   static PbrCounters record( std::uint64_t key ) { return PbrCounters( key, {}, nullptr, true ); }
   std::string difference() const { return Replay( run ).difference(); }

   RecordedRun run;
};

TEST_F( ReplayTest, ARunAsItShouldBeHasNoDifference ) { EXPECT_EQ( difference(), "" ); }

TEST_F( ReplayTest, ARecordOutOfTurnIsOne ) {
   run.steps.front() = Item{ 3, record( 3 ) };
   EXPECT_EQ( difference(), "another record was handed over" );
}

TEST_F( ReplayTest, ARunThatDoesNotAskWhetherToYieldIsOne ) {
   run.steps.erase( run.steps.begin() + 2 );
   EXPECT_EQ( difference(), "it was not asked to yield" );
}

TEST_F( ReplayTest, ARunThatDoesNotAskWhetherItIsOutdatedIsOne ) {
   run.steps.erase( run.steps.begin() + 1 );
   EXPECT_EQ( difference(), "it was not asked whether it is outdated" );
}

TEST_F( ReplayTest, ARunThatEndsEarlyIsOne ) {
   run.steps.resize( 3 );
   EXPECT_EQ( difference(), "a record was not handed over" );
}

TEST_F( ReplayTest, ARunThatGoesOnWhenToldToYieldIsOne ) {
   run.steps.push_back( Item{ 3, record( 3 ) } );
   EXPECT_EQ( difference(), "the run went on where it should have ended" );
}

TEST_F( ReplayTest, ARunThatGoesOnWhenOutdatedIsOne ) {
   run.steps[1] = AskedIfOutdated{ true };
   EXPECT_EQ( difference(), "the run went on where it should have ended" );
}

TEST_F( ReplayTest, AnArrivalThatIsLostIsOne ) {
   run.after.erase( 9 );
   EXPECT_EQ( difference(), "other records are pending after the run" );
}

TEST_F( ReplayTest, AWithdrawnRecordThatIsStillThereIsOne ) {
   run.steps.insert( run.steps.begin() + 5, Change{ 9, {} } );
   EXPECT_EQ( difference(), "other records are pending after the run" );
}

TEST_F( ReplayTest, ARecordThatBrokeAndIsLostIsOne ) {
   run.steps.pop_back();
   run.broke = true;
   EXPECT_EQ( difference(), "other records are pending after the run" );
}

TEST_F( ReplayTest, ABookmarkElsewhereIsOne ) {
   run.bookmarkAfter.reset();
   EXPECT_EQ( difference(), "the bookmark is another" );
}

TEST_F( ReplayTest, ARunThatBeginsElsewhereThanAtItsBookmarkIsOne ) {
   run.bookmarkBefore = 2;
   EXPECT_EQ( difference(), "another record was handed over" );
}

TEST_F( ReplayTest, AnotherProgressIsOne ) {
   run.progress.passCount = 1;
   EXPECT_EQ( difference(), "the progress is another" );
}

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS

class RunConformanceTest : public BacklogTest {
 protected:
   const RunConformance runs; ///< In place of the fixture's own.
   const Lumo::Ptr< Oru::Task > task = Lumo::makeNode< Oru::Task >(
      Oru::TaskSchedulerRoot::findOrCreateScheduler(), Oru::TaskPriority{ 3 }, "drain" );
};

TEST_F( RunConformanceTest, EveryRunIsReplayedWhenItHasEnded ) {
   watch();
   file( { 1, 2, 3 } );
   loop.yieldsAfter( 1 );
   consumer->beforeItem = [this]( const auto & c, auto ) { file( { c.shortKey() } ); };
   backlog->process( task );
   backlog->process( task );
   consumer->beforeItem = []( const auto &, auto ) { throw ConsumerBroke(); };
   EXPECT_THROW( backlog->process( task ), ConsumerBroke );
   EXPECT_EQ( runs.replayed(), 3U );
   EXPECT_EQ( runs.difference(), "" );
}

TEST_F( RunConformanceTest, WhatNobodyWasToldOfIsADifference ) {
   watch();
   file( { 1 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      file( { 2 } );
      backlog->frontendIs( nullptr );
      backlog->process( nullptr ); // Throws it away without a word.
   };
   backlog->process( task );
   EXPECT_EQ( runs.difference(), "other records are pending after the run" );
}

#endif

} // namespace
} // namespace VeloSdkRpc::test
