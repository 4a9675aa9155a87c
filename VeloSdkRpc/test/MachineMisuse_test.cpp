#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/BothMachinesTest.h"

/// What the twin machines withstand from whoever holds them: parts taken away, notifications
/// switched twice, arguments that are their own.

namespace VeloSdkRpc::test {
namespace {

using detail::InputScanState;
using testing::IsEmpty;
using testing::SizeIs;

template< class Machine >
class MachineMisuseTest : public BothMachinesTest< Machine > {};
TYPED_TEST_SUITE( MachineMisuseTest, BothMachines );

// Parts that are missing --------------------------------------------------------------------------

TYPED_TEST( MachineMisuseTest, WithoutAnOutputStateTheHandlersDoNothing ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   this->sm->outputStateDel();
   Lumo::CapturingTraceSink traces;
   this->sm->handleShortKeysShortKeyOutputInputReady();
   this->sm->handleShortKeysNextKeyOutputInputReady();
   this->sm->inputSmScanState()->inputScanIs( false ); // Its reaction calls all of them.
   EXPECT_THAT( traces.messages, IsEmpty() );
   this->tree.addClass( "p0", "more" );
   EXPECT_THAT( this->known(), SizeIs( 2 ) );
}

TYPED_TEST( MachineMisuseTest, AFreshOutputStateBecomesReadyWhenTheHandlersAreCalled ) {
   this->startSynchronous();
   this->sm->outputStateDel();
   this->sm->outputStateIs();
   EXPECT_FALSE( this->sm->ready() );
   this->sm->inputSmScanState()->inputScanIs( false );
   this->sm->inputSmScanState()->inputScanIs( true );
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( MachineMisuseTest, TheMachinesBelowMayBeLetGoWhenTheEndOfAPassIsTold ) {
   this->startAndYield( 3 );
   const auto letsGo = Lumo::makeNode< ActsOnChange >(
      this->sm->inputSmScanState()->publisher(),
      [this]( short, const void *, const void * ) { TypeParam::rootDel( *this->sm ); } );
   this->loop.runUntilIdle();
   EXPECT_FALSE( TypeParam::root( *this->sm ) );
   EXPECT_FALSE( this->tree.root->publisher()->hasSubscribers() );
}

TYPED_TEST( MachineMisuseTest, WithoutAScanStateTheInputScanCountsAsNotDone ) {
   this->startAndYield( 3 );
   this->sm->inputSmScanStateDel();
   EXPECT_FALSE( this->sm->inputScan() );
   Lumo::CapturingTraceSink traces;
   this->sm->handleInitialScanDone();
   EXPECT_TRUE( traces.has( 9, " input scan is false" ) );
   this->sm->handleShortKeysShortKeyOutputInputReady();
   this->sm->handleShortKeysNextKeyOutputInputReady();
   this->child( this->policies()[0] )->doInputScan0();
   this->loop.runUntilIdle();
   EXPECT_TRUE( traces.has( 9, std::string( TypeParam::kRootName ) +
                                  " initial scan, and parent scan, complete." ) );
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::initialPassComplete );
   EXPECT_FALSE( this->sm->initialScanDone() );
   EXPECT_FALSE( this->sm->ready() );
}

TYPED_TEST( MachineMisuseTest, WithoutAScanStateItStillFollowsItsInput ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   this->sm->inputSmScanStateDel();
   this->tree.addClass( "p0", "more" );
   this->tree.addClass( "p1", "more" );
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
   this->sm->hasNotificationActiveIs( false );
   EXPECT_TRUE( this->sm->idle() );
}

TYPED_TEST( MachineMisuseTest, WithoutAHandleOfItsOwnItTracesThroughTheProcesssDefault ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto other = Lumo::makeNode< Lumo::TraceHandle >( "MachineMisuseTest" );
   this->sm->qtHandleIs( other.get() );
   EXPECT_EQ( this->sm->qtHandle(), other );
   this->sm->qtHandleIs( nullptr );
   EXPECT_EQ( this->sm->qtHandle(), Lumo::Platform::getDebugHandler( "Ivx" ) );
   Lumo::CapturingTraceSink traces( "Ivx" );
   this->tree.addClass( "p0", "more" );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 1 ) );
   EXPECT_THAT( this->known(), SizeIs( 2 ) );
}

TYPED_TEST( MachineMisuseTest, MachinesThatWereLetGoDoNothingWhenCalled ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto root = TypeParam::root( *this->sm );
   const auto child = this->child( "p0" );
   TypeParam::rootDel( *this->sm );
   this->tree.removePolicy( "p0" );
   root->handlePolicyMapCounters0( PolicyMapKey( "p0" ) );
   child->handleClassCounters0( "c0" );
   root->doInputScan0();
   root->doDeleteAll();
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
}

TYPED_TEST( MachineMisuseTest, AScanTaskThatGoesWhileTheScanTracesThatItYieldsIsNotMissed ) {
   this->startAndYield( 3 );
   const ActsOnTrace takes( "  yielding after", [this] { this->root().task0Del(); } );
   this->loop.runUntilIdle();
   EXPECT_EQ( takes.times, 1 );
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::yielded );
   this->root().doInputScan();
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
}

TYPED_TEST( MachineMisuseTest, ANullEntityIsRefusedBeforeAnythingElseIsLookedAt ) {
   this->startSynchronous();
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs(
                    nullptr, nullptr ),
                 Quon::NullPointerException );
}

TYPED_TEST( MachineMisuseTest, AMachineThatOutlivesTheOneAboveItHasNoneAboveIt ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto child = this->child( "p0" );
   this->sm = nullptr;
   EXPECT_FALSE( child->parent() );
   child->handleClassCounters0( "c0" );
}

TYPED_TEST( MachineMisuseTest, ARootMachineThatIsReplacedIsADeafZombieWithNoneAboveIt ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto before = TypeParam::root( *this->sm );
   TypeParam::rootIs( *this->sm, this->tree.root );
   EXPECT_NE( TypeParam::root( *this->sm ), before );
   EXPECT_FALSE( before->hasNotificationActive() );
   EXPECT_TRUE( before->isZombie() );
   EXPECT_FALSE( before->parent() );
}

TYPED_TEST( MachineMisuseTest, AScanStateThatIsReplacedIsNotHeardAnyMoreAndTheNewOneIs ) {
   this->startSynchronous();
   const auto before = this->sm->inputSmScanState();
   const auto after = Lumo::makeNode< typename TypeParam::ScanState >();
   this->sm->inputSmScanStateIs( after );
   EXPECT_FALSE( before->publisher()->hasSubscribers() );
   EXPECT_TRUE( after->publisher()->hasSubscribers() );
   this->sm->inputSmScanStateDel();
   EXPECT_FALSE( after->publisher()->hasSubscribers() );
}

TYPED_TEST( MachineMisuseTest, OnlyTheRootMachineItselfTakesThePolicyMaps ) {
   this->startSynchronous();
   const auto other = TypeParam::make( *this, this->control( kSynchronous ) );
   const auto map = Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( "p" ) );
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs(
                    map, TypeParam::root( *other ).get() ),
                 Lumo::AssertionThrown );
   EXPECT_FALSE( this->child( "p" ) );
}

// Notifications -----------------------------------------------------------------------------------

TYPED_TEST( MachineMisuseTest, SwitchingNotificationsToWhatTheyAreLeavesTheScanTaskAlone ) {
   this->startAndYield( 3 );
   this->sm->hasNotificationActiveIs( false );
   this->root().task0Is( this->loop.scheduler(), 3, "another" ); // Subscribes to the new one.
   this->root().hasNotificationActiveIs( false );
   EXPECT_TRUE( this->root().task0()->publisher()->hasSubscribers() );
   this->loop.runUntilIdle();
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::initialPassComplete );
}

TYPED_TEST( MachineMisuseTest, NotificationsThatAreOnAlreadyLeaveADeafRootMachineDeaf ) {
   this->startSynchronous();
   this->root().hasNotificationActiveIs( false );
   this->sm->hasNotificationActiveIs( true );
   EXPECT_FALSE( this->root().hasNotificationActive() );
}

TYPED_TEST( MachineMisuseTest, WithoutNotificationsTheEndOfTheInitialScanStillAsksForTheOutputs ) {
   this->startAndYield( 3 );
   this->sm->hasNotificationActiveIs( false );
   this->root().task0Del();
   this->root().doInputScan();
   EXPECT_TRUE( this->sm->inputScan() );
   EXPECT_FALSE( this->sm->initialScanDone() );
   this->sm->handleInitialScanDone();
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
   EXPECT_TRUE( this->sm->ready() );
}

// Arguments that are its own ----------------------------------------------------------------------

TYPED_TEST( MachineMisuseTest, AScanTaskMayTakeItsPropertiesFromTheOneThatItReplaces ) {
   this->startAndYield( 3 );
   this->root().task0Is( this->root().task0()->taskScheduler(), 5,
                         this->root().task0()->taskName() );
   EXPECT_EQ( this->root().task0()->taskScheduler(), this->loop.scheduler() );
   EXPECT_EQ( this->root().task0()->taskPriority(), 5 );
   EXPECT_EQ( this->root().task0()->taskName(), TypeParam::kScanTask );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( MachineMisuseTest, ARootMachineMayWatchWhatTheOneThatItReplacesWatched ) {
   const auto elsewhere = Lumo::makeNode< PolicyMapTypeCounters >();
   this->startSynchronous();
   TypeParam::rootIs( *this->sm, elsewhere );
   TypeParam::rootIs( *this->sm, this->root().en() );
   EXPECT_EQ( this->root().en(), elsewhere );
   EXPECT_EQ( this->root().parent(), this->sm.get() );
   elsewhere->policyMapCountersIs( PolicyMapKey( "p" ),
                                   Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( "p" ) ) );
   EXPECT_TRUE( this->child( "p" ) );
}

} // namespace
} // namespace VeloSdkRpc::test
