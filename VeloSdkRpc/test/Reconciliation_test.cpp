#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/ReconciliationTest.h"

/// What the backlog machine does about records and novel keys that were there before it.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

using BacklogKey = PbrCountersBacklogSm::BacklogBacklogOutputKeyType;
using NovelKey = PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType;

// Nothing to reconcile ----------------------------------------------------------------------------

TEST_F( ReconciliationTest, OverNothingAllOutputsAreReadyRightAfterTheFirstScan ) {
   tree.addClass( "p", "A" );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   EXPECT_TRUE( sm->ready() );
   EXPECT_TRUE( traces.has( 9, "Reconciling backlogBacklogOutput: false" ) );
   EXPECT_TRUE( traces.has( 9, "Reconciling shortKeysNovelKeyOutput: false" ) );
   EXPECT_FALSE( backlogTask() );
   EXPECT_FALSE( novelTask() );
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), IsEmpty() );
   EXPECT_THAT( sm->shortKeysNovelKeyOutputSeen(), IsEmpty() );
}

TEST_F( ReconciliationTest, OverNothingNoReconciliationTaskRuns ) {
   tree.addClass( "p", "A" );
   startAndScan();
   EXPECT_TRUE( sm->ready() );
   EXPECT_EQ( loop.pending(), 0U );
   ASSERT_TRUE( backlogTask() );
   EXPECT_EQ( backlogTask()->taskRuns(), 0U );
   EXPECT_EQ( novelTask()->taskRuns(), 0U );
}

TEST_F( ReconciliationTest, TheTasksHaveTheirNamesAndTheControlsPriorityAndScheduler ) {
   start( kAsynchronous );
   EXPECT_EQ( backlogTask()->taskName(), kBacklogTask );
   EXPECT_EQ( novelTask()->taskName(), kNovelTask );
   for ( const auto & task : { backlogTask(), novelTask() } ) {
      EXPECT_EQ( task->taskPriority(), 3 );
      EXPECT_EQ( task->taskScheduler(), loop.scheduler() );
   }
}

TEST_F( ReconciliationTest, TheOutputsBecomeReadyInOrder ) {
   Lumo::CapturingTraceSink traces;
   startAndScan();
   std::vector< std::string > completed;
   for ( const std::string & text : textsAt( traces, 9 ) ) {
      if ( text.starts_with( "Input scans for " ) ) { completed.push_back( text ); }
   }
   EXPECT_THAT( completed, ElementsAre( "Input scans for backlogBacklogOutput complete",
                                        "Input scans for shortKeysNovelKeyOutput complete",
                                        "Input scans for shortKeysNextKeyOutput complete",
                                        "Input scans for shortKeysShortKeyOutput complete" ) );
}

TEST_F( ReconciliationTest, ACallWhileTheOutputIsReadyIsOnlyTraced ) {
   start( kSynchronous );
   leaveRecord( 5 );
   Lumo::CapturingTraceSink traces;
   sm->handleBacklogBacklogOutputInputReady();
   sm->handleShortKeysNovelKeyOutputInputReady();
   EXPECT_EQ( traces.count( 9, " already ready, not reconciling." ), 2U );
   EXPECT_THAT( traces.messages, SizeIs( 4 ) ); // Each is also entered.
   EXPECT_THAT( records(), ElementsAre( 5 ) );
}

TEST_F( ReconciliationTest, NothingIsRememberedAsSeenUnlessReconciling ) {
   start( kAsynchronous );
   loop.runUntilIdle();
   tree.addClass( "p", "A" );
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), IsEmpty() );
   EXPECT_THAT( sm->shortKeysNovelKeyOutputSeen(), IsEmpty() );
}

// In one go ---------------------------------------------------------------------------------------

TEST_F( ReconciliationTest, RecordsThatTheScanDidNotWriteAgainAreDeleted ) {
   leaveRecords( 1, 5 );
   const auto two = tree.addClass( "p", "2" );
   const auto four = tree.addClass( "p", "4" );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   EXPECT_TRUE( sm->ready() );
   EXPECT_TRUE( traces.has( 9, "Reconciling backlogBacklogOutput: true" ) );
   EXPECT_EQ( traces.count( 9, done( 5, 3 ) ), 1U );
   EXPECT_THAT( records(), UnorderedElementsAre( 2, 4 ) );
   EXPECT_EQ( record( 2 ).data(), two );
   EXPECT_EQ( record( 4 ).data(), four );
   EXPECT_FALSE( sm->backlogBacklogOutputReconciling() );
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), IsEmpty() );
   EXPECT_FALSE( sm->backlogBacklogOutputUseBookmark() );
}

TEST_F( ReconciliationTest, NovelKeysThatWereNotAllocatedAgainAreDeleted ) {
   leaveNovelKeys( 1, 4 );
   tree.addClass( "p", "A" );
   tree.addClass( "p", "B" );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   EXPECT_TRUE( traces.has( 9, "Reconciling shortKeysNovelKeyOutput: true" ) );
   EXPECT_TRUE( traces.has( 9, "Reconciling backlogBacklogOutput: false" ) );
   EXPECT_EQ( traces.count( 9, done( 6, 4 ) ), 1U );
   EXPECT_THAT( novelKeys(), UnorderedElementsAre( 5, 6 ) );
   EXPECT_FALSE( sm->shortKeysNovelKeyOutputReconciling() );
   EXPECT_THAT( sm->shortKeysNovelKeyOutputSeen(), IsEmpty() );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, TheTableIsNeverPruned ) {
   leaveRecords( 1, 3 );
   tree.addClass( "p", "new" );
   start( kSynchronous );
   EXPECT_EQ( shortKey( "p", "1" ), 1U );
   EXPECT_EQ( shortKey( "p", "3" ), 3U );
   EXPECT_EQ( shortKey( "p", "new" ), 4U );
   EXPECT_EQ( table->nextKey(), 4U );
   EXPECT_THAT( records(), ElementsAre( 4 ) );
}

TEST_F( ReconciliationTest, AKeyIsRememberedAsSeenBeforeItIsWritten ) {
   leaveRecord( 1 );
   leaveNovelKeys( 7, 7 );
   tree.addClass( "p", "1" );
   tree.addClass( "p", "A" );
   loop.endlessSlices();
   start( kAsynchronous );
   int heard = 0;
   const auto listening = onBacklog( [&]( std::uint64_t key, const PbrCounters * value ) {
      if ( !value ) { return; }
      ++heard;
      EXPECT_TRUE( sm->backlogBacklogOutputSeen()[BacklogKey( key )] );
   } );
   ActsOnTrace probe( "into( shortKeys.novelKey", [&] {
      EXPECT_TRUE( sm->shortKeysNovelKeyOutputSeen()[NovelKey( 8 )] );
      EXPECT_FALSE( table->novelKey()[8] );
   } );
   loop.runUntilIdle();
   EXPECT_EQ( heard, 2 );
   EXPECT_EQ( probe.times, 1 );
}

TEST_F( ReconciliationTest, WhatWasSeenCanBeEdited ) {
   start( kSynchronous );
   sm->backlogBacklogOutputSeenIs( BacklogKey( 1 ) );
   sm->backlogBacklogOutputSeenIs( BacklogKey( 2 ) );
   sm->backlogBacklogOutputSeenIs( BacklogKey( 2 ) );
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), SizeIs( 2 ) );
   sm->backlogBacklogOutputSeenDel( BacklogKey( 1 ) );
   EXPECT_FALSE( sm->backlogBacklogOutputSeen()[BacklogKey( 1 )] );
   sm->backlogBacklogOutputSeenDelAll();
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), IsEmpty() );
   sm->shortKeysNovelKeyOutputSeenIs( NovelKey( 1 ) );
   sm->shortKeysNovelKeyOutputSeenIs( NovelKey( 2 ) );
   sm->shortKeysNovelKeyOutputSeenDel( NovelKey( 1 ) );
   EXPECT_THAT( sm->shortKeysNovelKeyOutputSeen(), SizeIs( 1 ) );
   sm->shortKeysNovelKeyOutputSeenDelAll();
   EXPECT_THAT( sm->shortKeysNovelKeyOutputSeen(), IsEmpty() );
}

// In slices ---------------------------------------------------------------------------------------

TEST_F( ReconciliationTest, ACallFromOutsideTheTaskHandlesOneEntryAndLaterRunsTheRest ) {
   leaveRecords( 1, 5 );
   const std::vector< std::uint64_t > order = records();
   Lumo::CapturingTraceSink traces;
   startAndScan();
   EXPECT_EQ( traces.count( 9, yielded( 1, 1 ) ), 1U );
   EXPECT_EQ( backlogTask()->taskWorkCount(), 1U );
   EXPECT_TRUE( sm->backlogBacklogOutputUseBookmark() );
   EXPECT_EQ( *sm->backlogBacklogOutputBookmark(), order[1] );
   EXPECT_FALSE( sm->outputState()->backlogBacklogOutputReady() );
   EXPECT_TRUE( sm->outputState()->shortKeysNovelKeyOutputReady() );
   EXPECT_TRUE( sm->outputState()->shortKeysNextKeyOutputReady() );
   EXPECT_TRUE( sm->outputState()->shortKeysShortKeyOutputReady() );
   EXPECT_FALSE( sm->ready() );
   EXPECT_EQ( loop.pending(), 1U );
   loop.yieldsAfter( 1 );
   loop.runOne();
   EXPECT_EQ( traces.count( 9, yielded( 2, 2 ) ), 1U );
   EXPECT_EQ( backlogTask()->taskWorkCount(), 3U );
   EXPECT_EQ( *sm->backlogBacklogOutputBookmark(), order[3] );
   const Lumo::Ptr< Oru::Task > task = backlogTask();
   loop.runOne();
   EXPECT_EQ( traces.count( 9, done( 2, 2 ) ), 1U );
   EXPECT_EQ( task->taskWorkCount(), 5U );
   EXPECT_FALSE( backlogTask() );
   EXPECT_FALSE( task->publisher()->hasSubscribers() );
   EXPECT_FALSE( sm->backlogBacklogOutputUseBookmark() );
   EXPECT_TRUE( sm->ready() );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( ReconciliationTest, TheNovelSetIsReconciledInSlicesToo ) {
   leaveNovelKeys( 1, 5 );
   const std::vector< std::uint64_t > order = novelKeys();
   Lumo::CapturingTraceSink traces;
   startAndScan();
   EXPECT_EQ( traces.count( 9, yielded( 1, 1 ) ), 1U );
   EXPECT_EQ( *sm->shortKeysNovelKeyOutputBookmark(), order[1] );
   EXPECT_TRUE( sm->shortKeysNovelKeyOutputUseBookmark() );
   EXPECT_FALSE( sm->outputState()->shortKeysNovelKeyOutputReady() );
   EXPECT_TRUE( sm->outputState()->backlogBacklogOutputReady() );
   loop.runUntilIdle();
   EXPECT_EQ( traces.count( 9, done( 4, 4 ) ), 1U );
   EXPECT_THAT( novelKeys(), IsEmpty() );
   EXPECT_FALSE( novelTask() );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, EveryCallFromOutsideHandlesOneMoreEntry ) {
   leaveRecords( 1, 4 );
   startAndScan();
   EXPECT_THAT( records(), SizeIs( 3 ) );
   sm->handleBacklogBacklogOutputInputReady();
   EXPECT_THAT( records(), SizeIs( 2 ) );
   EXPECT_EQ( loop.pending(), 1U );
   EXPECT_EQ( backlogTask()->taskWorkCount(), 2U );
}

TEST_F( ReconciliationTest, ASingleEntryNeedsNoSecondCall ) {
   leaveRecord( 1 );
   leaveNovelKeys( 1, 1 );
   Lumo::CapturingTraceSink traces;
   startAndScan();
   EXPECT_EQ( traces.count( 9, done( 1, 1 ) ), 2U );
   EXPECT_TRUE( sm->ready() );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( ReconciliationTest, WhetherToYieldIsAskedOnlyInsideTheTaskAndOnlyIfMoreIsToCome ) {
   leaveRecords( 1, 6 );
   leaveNovelKeys( 1, 4 );
   int asks = 0;
   loop.endlessSlices();
   start( kAsynchronous );
   loop.countsAsks( asks );
   loop.runOne();
   EXPECT_EQ( asks, 0 ); // Nothing to scan, and the first calls come from outside.
   loop.runOne();
   EXPECT_EQ( asks, 4 ); // Five left, the last one is not asked about.
   loop.runOne();
   EXPECT_EQ( asks, 4 + 2 );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, TheDeletionScanResumesBehindABookmarkThatIsGone ) {
   leaveRecords( 1, 5 );
   startAndScan();
   const std::uint64_t gone = *sm->backlogBacklogOutputBookmark();
   backlog->backlogDel( gone ); // The consumer has drained it meanwhile.
   Lumo::CapturingTraceSink traces;
   loop.runUntilIdle();
   EXPECT_TRUE( traces.has( 9, done( 3, 3 ) ) );
   EXPECT_THAT( records(), IsEmpty() );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, WhatIsWrittenBetweenSlicesStays ) {
   leaveRecords( 1, 6 );
   leaveNovelKeys( 1, 6 );
   startAndScan();
   for ( int n = 0; n < 20; ++n ) { tree.addClass( "q", "new" + std::to_string( n ) ); }
   const auto three = tree.addClass( "p", "3" ); // Known by its old key.
   EXPECT_TRUE( sm->backlogBacklogOutputSeen()[BacklogKey( 3 )] );
   tree.removeClass( "q", "new0" );
   loop.alwaysYields();
   loop.runUntilIdle();
   EXPECT_TRUE( sm->ready() );
   EXPECT_EQ( record( 3 ).data(), three );
   EXPECT_THAT( records(), SizeIs( 21 ) );
   EXPECT_THAT( novelKeys(), SizeIs( 20 ) );
}

TEST_F( ReconciliationTest, WithoutATaskTheDeletionScanRunsToTheEndInOneCall ) {
   leaveRecords( 1, 5 );
   loop.endlessSlices();
   start( kAsynchronous );
   const Lumo::Ptr< Oru::Task > task = backlogTask();
   sm->backlogBacklogOutputReconciliationTaskDel();
   EXPECT_FALSE( backlogTask() );
   EXPECT_FALSE( task->publisher()->hasSubscribers() );
   Lumo::CapturingTraceSink traces;
   loop.runOne();
   EXPECT_TRUE( traces.has( 9, done( 5, 5 ) ) );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( ReconciliationTest, ATaskCanBeReplacedAndItsRunsCount ) {
   leaveRecords( 1, 4 );
   startAndScan();
   const Lumo::Ptr< Oru::Task > old = backlogTask();
   const auto elsewhere = Lumo::makeNode< Oru::TaskScheduler >();
   elsewhere->slicePolicyIs( std::make_unique< Oru::YieldsAfter >( 99 ) );
   sm->backlogBacklogOutputReconciliationTaskIs( elsewhere, 1, "other" );
   EXPECT_FALSE( old->publisher()->hasSubscribers() );
   loop.runUntilIdle(); // The old one's run is heard by nobody.
   EXPECT_FALSE( sm->ready() );
   backlogTask()->scheduleTask();
   elsewhere->runUntilIdle();
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( records(), IsEmpty() );
}

TEST_F( ReconciliationTest, RecordsOfTheYieldedScanAreSeenAcrossSlices ) {
   leaveRecords( 1, 8 );
   for ( const int key : { 1, 3, 5, 7 } ) { tree.addClass( "p", std::to_string( key ) ); }
   loop.alwaysYields();
   start( kAsynchronous );
   loop.runUntilIdle();
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( records(), UnorderedElementsAre( 1, 3, 5, 7 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
