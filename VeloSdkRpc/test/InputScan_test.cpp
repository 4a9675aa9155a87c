#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BothMachinesTest.h"

/// How the twin machines scan their input in slices, whatever happens to it in between.

namespace VeloSdkRpc::test {
namespace {

using detail::InputScanState;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

template< class Machine >
class InputScanTest : public BothMachinesTest< Machine > {};
TYPED_TEST_SUITE( InputScanTest, BothMachines );

// Slices -----------------------------------------------------------------------------------------

TYPED_TEST( InputScanTest, TheScanTaskHasItsNameAndTheControlsPriority ) {
   this->startAsynchronous();
   ASSERT_TRUE( this->root().task0() );
   EXPECT_EQ( this->root().task0()->taskName(), TypeParam::kScanTask );
   EXPECT_EQ( this->root().task0()->taskPriority(), 3 );
   EXPECT_EQ( this->root().task0()->taskScheduler(), this->loop.scheduler() );
}

TYPED_TEST( InputScanTest, TheFirstSliceRunsInsideTheCallThatMakesTheMachine ) {
   this->startAndYield( 4 );
   EXPECT_TRUE( this->child( this->policies()[0] ) );
   EXPECT_FALSE( this->child( this->policies()[1] ) );
   EXPECT_EQ( this->bookmark(), this->policies()[1] );
   EXPECT_EQ( this->loop.pending(), 1U );
}

TYPED_TEST( InputScanTest, AYieldIsTracedAndToldToTheScheduler ) {
   Lumo::CapturingTraceSink traces;
   this->grow( 5, 0 );
   this->loop.yieldsAfter( 1 );
   this->startAsynchronous();
   EXPECT_TRUE( traces.has( 8, "  yielding after 2 iterations (5 total items)" ) );
   EXPECT_EQ( this->bookmark(), this->policies()[2] );
   EXPECT_EQ( this->root().task0()->taskWorkCount(), 2U );
   EXPECT_EQ( this->root().task0()->taskWorkPending(), 5U );
   this->loop.runOne();
   EXPECT_EQ( traces.count( 8, "  yielding after 2 iterations (5 total items)" ), 2U );
   EXPECT_EQ( this->bookmark(), this->policies()[4] );
   EXPECT_EQ( this->root().task0()->taskWorkCount(), 4U );
   this->loop.runOne(); // the last one, then the pass is over
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_EQ( this->root().task0()->taskWorkCount(), 4U );
   EXPECT_TRUE( this->sm->initialScanDone() );
   EXPECT_EQ( this->loop.pending(), 1U );
}

TYPED_TEST( InputScanTest, AYieldInsideAPolicyMapStopsTheRootAtTheSameKey ) {
   Lumo::CapturingTraceSink traces;
   this->grow( 1, 4 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   // Its own first scan handled one class, the root's slice one more.
   const auto child = this->child( "p0" );
   const std::string key = this->spelled( child->smKey() );
   EXPECT_EQ( traces.count( 8, key + "  yielding after 1 iterations (4 total items)" ), 2U );
   EXPECT_TRUE( traces.has( 8, " child yielding after 0 iterations (1 total items)" ) );
   EXPECT_EQ( child->inputScanState0(), InputScanState::yielded );
   EXPECT_EQ( child->inputScanBookmark0(), this->classes( "p0" )[2] );
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::yielded );
   EXPECT_EQ( this->bookmark(), "p0" );
   EXPECT_EQ( this->root().task0()->taskWorkCount(), 0U );
   EXPECT_EQ( this->root().task0()->taskWorkPending(), 1U );
   this->loop.runOne();
   EXPECT_EQ( child->inputScanBookmark0(), this->classes( "p0" )[3] );
   this->loop.runOne();
   EXPECT_EQ( child->inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_TRUE( this->sm->initialScanDone() );
}

TYPED_TEST( InputScanTest, AYieldAtTheLastItemFinishesThePass ) {
   this->grow( 1, 1 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_EQ( this->child( "p0" )->inputScanState0(), InputScanState::initialPassComplete );
}

TYPED_TEST( InputScanTest, WhetherToYieldIsAskedOncePerClassAndPolicyMapAndPass ) {
   int asks = 0;
   this->grow( 3, 4 );
   this->loop.countsAsks( asks );
   this->startAsynchronous();
   EXPECT_EQ( asks, 3 + 3 * 4 );
   this->loop.runUntilIdle();
   EXPECT_EQ( asks, 2 * ( 3 + 3 * 4 ) );
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( InputScanTest, APolicyMapWhoseScanStoppedIsNotAskedFor ) {
   this->grow( 1, 3 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   // Two asks below, both told to yield; none at the root.
   EXPECT_EQ( this->root().task0()->taskYieldsTold(), 2U );
}

TYPED_TEST( InputScanTest, AScanInsideAReactionDoesNotYieldAndDoesNotAsk ) {
   this->startAndYieldInTheSecondPass( 3 );
   int asks = 0;
   this->loop.countsAsks( asks );
   const auto made = Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( "new" ) );
   for ( const char * name : { "a", "b", "c" } ) {
      made->classCountersIs( name, Lumo::makeNode< CountersData >( name ) );
   }
   this->tree.root->policyMapCountersIs( PolicyMapKey( "new" ), made );
   EXPECT_EQ( asks, 0 );
   ASSERT_TRUE( this->child( "new" ) );
   EXPECT_EQ( this->child( "new" )->inputScanState0(), InputScanState::complete );
   EXPECT_NE( this->shortKey( "new", "c" ), 0U );
   EXPECT_FALSE( this->root().inReactor() );
}

TYPED_TEST( InputScanTest, TheWholeTreeSharesTheRootsInReactorFlag ) {
   this->startAndYield( 3 );
   const auto child = this->child( this->policies()[0] );
   EXPECT_TRUE( this->root().shouldYield0() );
   EXPECT_TRUE( child->shouldYield0() );
   child->inReactorIs( true );
   EXPECT_TRUE( this->root().inReactor() );
   EXPECT_TRUE( child->inReactor() );
   EXPECT_FALSE( this->root().shouldYield0() );
   EXPECT_FALSE( child->shouldYield0() );
   this->root().inReactorIs( false );
   EXPECT_FALSE( child->inReactor() );
}

TYPED_TEST( InputScanTest, TheInReactorFlagStandsForTheLengthOfAReaction ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   ActsOnTrace probe( "input = from(", [&] { EXPECT_TRUE( this->root().inReactor() ); } );
   this->tree.addClass( "p0", "more" );
   EXPECT_EQ( probe.times, 1 );
   EXPECT_FALSE( this->root().inReactor() );
   this->tree.addClass( "p1", "more" );
   EXPECT_EQ( probe.times, 2 );
   EXPECT_FALSE( this->root().inReactor() );
}

TYPED_TEST( InputScanTest, WithoutATaskNothingYieldsAndNothingRunsInIt ) {
   this->grow( 1, 1 );
   this->loop.alwaysYields();
   this->startSynchronous();
   EXPECT_FALSE( this->root().shouldYield0() );
   EXPECT_FALSE( this->root().inTask0() );
   EXPECT_FALSE( this->child( "p0" )->shouldYield0() );
   EXPECT_FALSE( this->child( "p0" )->inTask0() );
}

TYPED_TEST( InputScanTest, InTheTaskMeansWhileThatTaskRuns ) {
   this->startAndYield( 3 );
   const auto child = this->child( this->policies()[0] );
   EXPECT_FALSE( this->root().inTask0() );
   EXPECT_FALSE( child->inTask0() );
   ActsOnTrace probe( "k: ", [&] {
      EXPECT_TRUE( this->root().inTask0() );
      EXPECT_TRUE( child->inTask0() );
   } );
   this->loop.runOne();
   EXPECT_GT( probe.times, 0 );
}

TYPED_TEST( InputScanTest, APassThatIsCompleteBecomesIncompleteWhenEventsCount ) {
   this->startAndYield( 2 );
   EXPECT_FALSE( this->root().inputScanComplete0() );
   const auto first = this->child( this->policies()[0] );
   EXPECT_EQ( first->inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_TRUE( first->inputScanComplete0() );
   this->loop.runOne(); // ends the first pass
   ASSERT_TRUE( this->sm->initialScanDone() );
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_FALSE( this->root().inputScanComplete0() );
   EXPECT_FALSE( first->inputScanComplete0() );
   this->loop.runUntilIdle();
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::complete );
   EXPECT_TRUE( this->root().inputScanComplete0() );
   EXPECT_EQ( first->inputScanState0(), InputScanState::complete );
   EXPECT_TRUE( first->inputScanComplete0() );
}

TYPED_TEST( InputScanTest, ASecondScanOfACompletePassReturnsWithoutWork ) {
   this->grow( 2, 1 );
   this->startSynchronous();
   Lumo::CapturingTraceSink traces;
   this->root().doInputScan0();
   this->child( "p0" )->doInputScan0();
   EXPECT_THAT( textsAt( traces, 9 ),
                Each( std::string( " scan complete: true resumed: false scan: true" ) ) );
   EXPECT_THAT( traces.messages, SizeIs( 2 ) );
}

TYPED_TEST( InputScanTest, ASliceTellsWhetherItIsResumed ) {
   this->startAndYield( 2 );
   Lumo::CapturingTraceSink traces;
   this->loop.runOne();
   EXPECT_EQ( textsAt( traces, 9 ).front(), " scan complete: false resumed: true scan: false" );
}

TYPED_TEST( InputScanTest, TheEndsOfThePassesAreTraced ) {
   this->grow( 1, 3 );
   Lumo::CapturingTraceSink traces;
   this->startSynchronous();
   const std::string root = TypeParam::kRootName;
   const std::string child = TypeParam::kChildName;
   EXPECT_EQ( traces.count( 9, child + " initial scan complete. Processed 3 children. " ), 1U );
   EXPECT_EQ( traces.count( 9, child + " scan complete. Processed 3 children. " ), 1U );
   EXPECT_EQ( traces.count( 9, root + " initial scan, and parent scan, complete." ), 1U );
   EXPECT_EQ( traces.count( 9, root + " scan, and parent scan, complete." ), 1U );
}

TYPED_TEST( InputScanTest, APassThatWasSlicedCountsAndFeedsAllItsClassesOnce ) {
   this->grow( 1, 5 );
   Lumo::CapturingTraceSink traces;
   this->loop.alwaysYields();
   this->startAsynchronous();
   this->loop.runUntilIdle();
   const std::string child = TypeParam::kChildName;
   EXPECT_EQ( traces.count( 9, child + " initial scan complete. Processed 5 children. " ), 1U );
   EXPECT_EQ( traces.count( 9, child + " scan complete. Processed 5 children. " ), 1U );
   std::vector< std::string > expected;
   for ( const std::string & name : this->classes( "p0" ) ) {
      expected.push_back( "policyKey=" + this->spelled( PolicyMapKey( "p0" ) ) + " name=" + name );
   }
   EXPECT_THAT( leavesFed( traces ), testing::ElementsAreArray( expected ) );
}

TYPED_TEST( InputScanTest, ASliceOfAPolicyMapTellsWhetherItIsResumed ) {
   this->grow( 1, 4 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   const auto child = this->child( "p0" );
   const std::string next = this->classes( "p0" )[2];
   ASSERT_EQ( child->inputScanBookmark0(), next );
   Lumo::CapturingTraceSink traces;
   child->doInputScan0();
   EXPECT_EQ( textsAt( traces, 9 ).front(), " scan complete: false resumed: true scan: false" );
   EXPECT_EQ( child->inputScanBookmark0(), this->classes( "p0" )[3] );
}

TYPED_TEST( InputScanTest, TheScanStatesAreNumbers ) {
   this->startAndYield( 2 );
   EXPECT_TRUE( this->root().inputScanState0() == 1 );
   EXPECT_TRUE( this->child( this->policies()[0] )->inputScanState0() == 3 );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->root().inputScanState0() == 2 );
   static_assert( sizeof( this->root().inputScanState0() ) == 1 );
}

TYPED_TEST( InputScanTest, TheTaskIsDroppedAtTheEndOfTheSecondPass ) {
   this->startAndYield( 3 );
   const Lumo::Ptr< Oru::Task > task = this->root().task0();
   this->loop.runUntilIdle();
   EXPECT_FALSE( this->root().task0() );
   EXPECT_FALSE( task->publisher()->hasSubscribers() );
   EXPECT_EQ( this->loop.pending(), 0U );
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( InputScanTest, ATaskThatIsAskedForAgainIsKept ) {
   this->startAndYield( 3 );
   const Lumo::Ptr< Oru::Task > task = this->root().task0();
   Lumo::CapturingTraceSink traces;
   this->root().task0Is( this->loop.scheduler(), 3, TypeParam::kScanTask );
   this->root().doInitializeTask();
   EXPECT_EQ( this->root().task0(), task );
   EXPECT_THAT( traces.messages, IsEmpty() );
}

TYPED_TEST( InputScanTest, ADifferentTaskReplacesTheOldOneAndRunsASliceAtOnce ) {
   const auto elsewhere = Lumo::makeNode< Oru::TaskScheduler >();
   elsewhere->slicePolicyIs( std::make_unique< Oru::AlwaysYield >() );
   this->startAndYield( 5 );
   const std::vector< std::string > order = this->policies();
   Lumo::Ptr< Oru::Task > task = this->root().task0();
   const auto replaced = [&]( std::size_t bookmark ) {
      EXPECT_NE( this->root().task0(), task );
      EXPECT_FALSE( task->publisher()->hasSubscribers() );
      EXPECT_EQ( this->bookmark(), order[bookmark] );
      task = this->root().task0();
   };
   this->root().task0Is( this->loop.scheduler(), 4, TypeParam::kScanTask );
   replaced( 2 );
   this->root().task0Is( this->loop.scheduler(), 4, "another" );
   replaced( 3 );
   this->root().task0Is( elsewhere, 4, "another" );
   replaced( 4 );
   task = nullptr;
   this->loop.runUntilIdle();
   EXPECT_FALSE( this->sm->ready() );
   elsewhere->runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( InputScanTest, AScanWithATaskWithoutASchedulerRunsInline ) {
   this->startAndYield( 3 );
   this->root().task0Is( nullptr, 3, TypeParam::kScanTask ); // never told to yield
   EXPECT_TRUE( this->sm->initialScanDone() );
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
}

TYPED_TEST( InputScanTest, DroppingTheTaskInsideItsOwnRunLetsTheSliceFinishThePass ) {
   this->startAndYield( 4 );
   {
      ActsOnTrace dropper( "k: ", [&] { this->root().task0Del(); } );
      this->loop.runOne();
   }
   EXPECT_FALSE( this->root().task0() );
   EXPECT_TRUE( this->sm->initialScanDone() );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
}

TYPED_TEST( InputScanTest, ADirectSliceOfAMachineThatHasNotStartedDoesNothing ) {
   this->startSynchronous();
   const auto fresh = Lumo::makeNode< typename TypeParam::Root >( this->tree.root, this->sm.get() );
   Lumo::CapturingTraceSink traces;
   fresh->doInputScan();
   fresh->doInputScan0();
   EXPECT_EQ( fresh->inputScanState0(), InputScanState::neverScanned );
   EXPECT_THAT( traces.messages, IsEmpty() );
}

// Changes while a scan is yielded ----------------------------------------------------------------

TYPED_TEST( InputScanTest, APolicyMapRemovedBeforeItsTurnIsNeverScanned ) {
   this->startAndYieldInTheSecondPass( 5 );
   Lumo::CapturingTraceSink traces;
   const std::vector< std::string > order = this->policies();
   try {
      this->tree.removePolicy( order[1] );        // the bookmarked one
   } catch ( const Quon::BadOptionalAccess & ) {} // Not fed yet: nothing is known to withdraw.
   EXPECT_FALSE( this->child( order[1] ) );
   traces.messages.clear();
   this->loop.runUntilIdle();
   EXPECT_THAT( leavesFed( traces ), SizeIs( 3 ) );
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
   EXPECT_EQ( this->shortKey( order[1], "c0" ), 0U );
}

TYPED_TEST( InputScanTest, TheScanResumesAtTheNextKeyWhenTheBookmarkedPolicyMapIsGone ) {
   this->startAndYield( 4 );
   const std::vector< std::string > order = this->policies();
   ASSERT_EQ( this->bookmark(), order[1] );
   this->tree.removePolicy( order[1] );
   this->loop.runOne();
   EXPECT_TRUE( this->child( order[2] ) );
   EXPECT_EQ( this->bookmark(), order[3] );
}

TYPED_TEST( InputScanTest, TheScanEndsWhenNothingIsLeftBehindTheBookmark ) {
   this->startAndYield( 2 );
   this->tree.removePolicy( this->policies()[1] );
   this->loop.runOne();
   EXPECT_TRUE( this->sm->initialScanDone() );
}

TYPED_TEST( InputScanTest, TheScanOfAPolicyMapResumesAtTheNextClassWhenTheBookmarkedOneIsGone ) {
   this->grow( 1, 6 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   const std::vector< std::string > order = this->classes( "p0" );
   ASSERT_EQ( this->child( "p0" )->inputScanBookmark0(), order[2] );
   this->tree.removeClass( "p0", order[2] );
   this->tree.removeClass( "p0", order[3] );
   this->loop.runOne();
   EXPECT_EQ( this->child( "p0" )->inputScanBookmark0(), order[5] );
   this->loop.runUntilIdle();
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
}

TYPED_TEST( InputScanTest, ABookmarkedPolicyMapThatIsReplacedIsScannedAnew ) {
   this->grow( 1, 4 );
   this->loop.alwaysYields();
   this->startAsynchronous();
   const auto before = this->child( "p0" );
   ASSERT_EQ( before->inputScanState0(), InputScanState::yielded );
   this->tree.removePolicy( "p0" );
   this->tree.addClass( "p0", "other" );
   EXPECT_NE( this->child( "p0" ), before );
   EXPECT_FALSE( before->parent() );
   EXPECT_EQ( this->child( "p0" )->inputScanState0(), InputScanState::initialPassComplete );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(),
                UnorderedElementsAre( testing::Key( testing::Pair( "p0", "other" ) ) ) );
}

TYPED_TEST( InputScanTest, WhatIsAddedWhileTheScanIsYieldedIsKnownInTheEndAndFedOnce ) {
   this->startAndYield( 3 );
   for ( int p = 0; p < 20; ++p ) { this->tree.addClass( "new" + std::to_string( p ), "c" ); }
   Lumo::CapturingTraceSink traces;
   this->loop.runUntilIdle();
   EXPECT_THAT( this->known(), SizeIs( 23 ) );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 23 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
