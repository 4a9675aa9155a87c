#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/ReconciliationTest.h"

/// What the reconciliation of the backlog machine withstands.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F( ReconciliationTest, DroppingTheTaskInsideItsOwnRunFinishesTheScan ) {
   leaveRecords( 1, 6 );
   leaveNovelKeys( 1, 6 );
   startAndScan();
   loop.alwaysYields();
   {
      const auto dropper = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
         sm->backlogBacklogOutputReconciliationTaskDel();
      } );
      loop.runOne();
   }
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_TRUE( sm->outputState()->backlogBacklogOutputReady() );
   {
      ActsOnTrace dropper( "shortKeysNovelKeyOutput",
                           [&] { sm->shortKeysNovelKeyOutputReconciliationTaskDel(); } );
      loop.runOne();
      EXPECT_EQ( dropper.times, 1 );
   }
   EXPECT_THAT( novelKeys(), IsEmpty() );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, TheMachineIsDroppedDuringTheDeletionScan ) {
   leaveRecords( 1, 6 );
   startAndScan();
   const auto dropper = onBacklog( [&]( std::uint64_t, const PbrCounters * ) { sm = nullptr; } );
   loop.runUntilIdle();
   EXPECT_EQ( loop.pending(), 0U );
   EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
}

TEST_F( ReconciliationTest, TheMachineIsDroppedWhenItsOutputBecomesReady ) {
   leaveRecords( 1, 3 );
   startAndScan();
   const auto dropper = Lumo::makeNode< ActsOnChange >(
      sm->outputState()->publisher(), [&]( short, const void *, const void * ) { sm = nullptr; } );
   loop.runUntilIdle();
   EXPECT_FALSE( sm );
}

TEST_F( ReconciliationTest, ABrokenDeletionDoesNotKeepTheOutputsFromBecomingReady ) {
   leaveRecords( 1, 6 );
   leaveNovelKeys( 1, 6 );
   loop.endlessSlices();
   start( kAsynchronous );
   int deletions = 0;
   const auto breaks = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
      ++deletions;
      throw std::runtime_error( "no" );
   } );
   int thrown = 0;
   while ( loop.pending() != 0 ) {
      try {
         loop.runOne();
      } catch ( const std::runtime_error & ) { ++thrown; }
   }
   EXPECT_EQ( thrown, 2 ); // The call from outside, and the task's run.
   EXPECT_EQ( deletions, 6 );
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_THAT( novelKeys(), IsEmpty() );
   EXPECT_TRUE( sm->ready() );
   EXPECT_TRUE( sm->idle() );
}

TEST_F( ReconciliationTest, AListenerThatChangesTheInputDuringTheDeletionScanIsFollowed ) {
   leaveRecords( 1, 6 );
   startAndScan();
   int added = 0;
   const auto disrupter = onBacklog( [&]( std::uint64_t, const PbrCounters * value ) {
      if ( !value ) { tree.addClass( "q", "new" + std::to_string( ++added ) ); }
   } );
   loop.alwaysYields();
   loop.runUntilIdle();
   EXPECT_EQ( added, 5 );
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( records(), SizeIs( 5 ) );
   EXPECT_THAT( known(), testing::SizeIs( 6 + 5 ) );
}

TEST_F( ReconciliationTest, AMachineDroppedBetweenSlicesNeverRunsAgain ) {
   leaveRecords( 1, 6 );
   leaveNovelKeys( 1, 6 );
   startAndScan();
   EXPECT_EQ( loop.pending(), 2U );
   sm = nullptr;
   EXPECT_EQ( loop.pending(), 0U );
   EXPECT_THAT( records(), SizeIs( 5 ) );
}

TEST_F( ReconciliationTest, AListenerThatBringsTheDeletionScanToItsEndEndsTheOneInProgress ) {
   leaveRecords( 1, 5 );
   tree.addClass( "p", "5" ); // Seen: it is to stay.
   startAndScan();
   const Lumo::Ptr< Oru::Task > task = backlogTask();
   const auto finisher = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
      if ( !sm->ready() ) { sm->handleBacklogBacklogOutputInputReady(); }
   } );
   Lumo::CapturingTraceSink traces;
   loop.endlessSlices();
   loop.runOne();
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( records(), ElementsAre( 5 ) );
   EXPECT_FALSE( sm->backlogBacklogOutputUseBookmark() );
   std::size_t ends = 0, yields = 0;
   for ( const std::string & text : textsAt( traces, 9 ) ) {
      ends += text.starts_with( "Deletion scan for reconciliation is done" );
      yields += text.starts_with( "Yielding in reconciliation" );
   }
   EXPECT_EQ( ends, 1U );
   EXPECT_EQ( yields, 0U );
}

TEST_F( ReconciliationTest, WhatAListenerThrowsAfterItHasEndedTheDeletionScanIsNotLost ) {
   leaveRecords( 1, 5 );
   startAndScan();
   const auto finisher =
      onBacklog( [&, done = false]( std::uint64_t, const PbrCounters * ) mutable {
         if ( std::exchange( done, true ) ) { return; }
         sm->handleBacklogBacklogOutputInputReady();
         throw std::runtime_error( "no" );
      } );
   loop.endlessSlices();
   EXPECT_THROW( loop.runOne(), std::runtime_error );
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, WhoIsToldThatAnOutputIsReadyFindsItReconciled ) {
   leaveRecords( 1, 5 );
   tree.addClass( "p", "5" );
   startAndScan();
   int told = 0;
   const auto looks = Lumo::makeNode< ActsOnChange >(
      sm->outputState()->publisher(), [&]( short, const void *, const void * ) {
         ++told;
         EXPECT_FALSE( sm->backlogBacklogOutputReconciling() );
         EXPECT_THAT( sm->backlogBacklogOutputSeen().size(), 0U );
      } );
   EXPECT_THAT( sm->backlogBacklogOutputSeen().size(), 1U );
   loop.runUntilIdle();
   EXPECT_GT( told, 0 );
}

TEST_F( ReconciliationTest, AnOutputThatIsReadyIsNotReconciledAgain ) {
   start( kSynchronous );
   const PbrCountersBacklogSm::BacklogBacklogOutputKeyType key( 1 );
   sm->backlogBacklogOutputSeenIs( key );
   sm->handleBacklogBacklogOutputInputReady();
   EXPECT_TRUE( sm->backlogBacklogOutputSeen()[key] );
}

TEST_F( ReconciliationTest, TheTasksOfTheOutputsAreMadeInTheOrderOfTheOutputs ) {
   start( kAsynchronous );
   std::vector< std::string > names;
   for ( const auto & task : loop.scheduler()->tasks() ) {
      names.emplace_back( task->taskName().view() );
   }
   ASSERT_THAT( names, SizeIs( 3 ) ); // And the scan's.
   EXPECT_EQ( names[0], kBacklogTask );
   EXPECT_EQ( names[1], kNovelTask );
}

TEST_F( ReconciliationTest, ATaskMayTakeItsPropertiesFromTheOneThatItReplaces ) {
   start( kAsynchronous );
   sm->backlogBacklogOutputReconciliationTaskIs( backlogTask()->taskScheduler(), 5,
                                                 backlogTask()->taskName() );
   EXPECT_EQ( backlogTask()->taskScheduler(), loop.scheduler() );
   EXPECT_EQ( backlogTask()->taskName(), kBacklogTask );
   EXPECT_EQ( backlogTask()->taskPriority(), 5 );
   sm->shortKeysNovelKeyOutputReconciliationTaskIs( novelTask()->taskScheduler(), 5,
                                                    novelTask()->taskName() );
   EXPECT_EQ( novelTask()->taskScheduler(), loop.scheduler() );
   EXPECT_EQ( novelTask()->taskName(), kNovelTask );
}

TEST_F( ReconciliationTest, WithoutAnOutputStateNothingIsReconciled ) {
   leaveRecords( 1, 5 );
   startAndScan();
   sm->outputStateDel();
   loop.runUntilIdle();
   EXPECT_THAT( records(), SizeIs( 4 ) );
   sm->outputStateIs();
   sm->handleBacklogBacklogOutputInputReady();
   loop.runUntilIdle();
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_TRUE( sm->outputState()->backlogBacklogOutputReady() );
}

TEST_F( ReconciliationTest, AListenerThatTakesTheOutputStateAwayLeavesTheDeletionScanToItsEnd ) {
   leaveRecords( 1, 5 );
   startAndScan();
   const auto disrupter =
      onBacklog( [&]( std::uint64_t, const PbrCounters * ) { sm->outputStateDel(); } );
   loop.endlessSlices();
   loop.runUntilIdle();
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_FALSE( sm->ready() );
}

} // namespace
} // namespace VeloSdkRpc::test
