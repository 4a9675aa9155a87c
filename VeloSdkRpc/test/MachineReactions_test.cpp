#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BothMachinesTest.h"

/// How the twin machines follow their input after the scans, and how they end.

namespace VeloSdkRpc::test {
namespace {

using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

template< class Machine >
class MachineReactionsTest : public BothMachinesTest< Machine > {};
TYPED_TEST_SUITE( MachineReactionsTest, BothMachines );

// Following the input ----------------------------------------------------------------------------

TYPED_TEST( MachineReactionsTest, AfterTheScansEveryChangeIsHandledAtOnceOneKeyAtATime ) {
   this->grow( 2, 2 );
   this->startSynchronous();
   Lumo::CapturingTraceSink traces;
   this->tree.addClass( "p0", "new" );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 1 ) );
   EXPECT_EQ( this->shortKey( "p0", "new" ), 5U );
   EXPECT_TRUE( traces.has( 8, "k: new" ) );
   this->tree.removeClass( "p0", "new" );
   EXPECT_EQ( this->shortKey( "p0", "new" ), 0U );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 2 ) );
   this->tree.addClass( "p2", "only" );
   EXPECT_EQ( this->shortKey( "p2", "only" ), 6U );
   EXPECT_TRUE( traces.has( 8, "k: " + this->spelled( PolicyMapKey( "p2" ) ) ) );
   this->tree.removePolicy( "p2" );
   EXPECT_FALSE( this->child( "p2" ) );
   EXPECT_EQ( this->shortKey( "p2", "only" ), 0U );
}

TYPED_TEST( MachineReactionsTest, APolicyMapIsWithdrawnBeforeItsMachineGoes ) {
   this->grow( 2, 3 );
   this->startSynchronous();
   const auto child = this->child( "p0" );
   bool attached = true;
   ActsOnTrace probe( "into( shortKeys.shortKey[ countersKey ] ): deleting", [&] {
      attached = attached && child->parent() == &this->root() && this->child( "p0" ) == child;
   } );
   this->tree.removePolicy( "p0" );
   EXPECT_EQ( probe.times, 3 );
   EXPECT_TRUE( attached );
   EXPECT_FALSE( child->parent() );
   EXPECT_FALSE( this->child( "p0" ) );
}

TYPED_TEST( MachineReactionsTest, ChangesAreNotHeardWhileNotificationsAreOff ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   this->sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( this->root().hasNotificationActive() );
   EXPECT_FALSE( this->child( "p0" )->hasNotificationActive() );
   EXPECT_FALSE( this->tree.root->publisher()->hasSubscribers() );
   EXPECT_FALSE( this->tree.policyMap( "p0" )->publisher()->hasSubscribers() );
   EXPECT_FALSE( this->sm->inputSmScanState()->publisher()->hasSubscribers() );
   this->tree.addClass( "p0", "unheard" );
   this->tree.addClass( "p1", "unheard" );
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
   this->sm->hasNotificationActiveIs( true );
   this->sm->hasNotificationActiveIs( true );
   EXPECT_TRUE( this->sm->inputSmScanState()->publisher()->hasSubscribers() );
   this->tree.addClass( "p0", "heard" );
   EXPECT_NE( this->shortKey( "p0", "heard" ), 0U );
   this->tree.addClass( "p2", "heard" );
   EXPECT_NE( this->shortKey( "p2", "heard" ), 0U );
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
}

TYPED_TEST( MachineReactionsTest, TheScanTaskIsNotHeardWhileNotificationsAreOff ) {
   this->startAndYield( 3 );
   const std::string at = this->bookmark();
   this->sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( this->root().task0()->publisher()->hasSubscribers() );
   this->loop.runUntilIdle();
   EXPECT_EQ( this->bookmark(), at );
   this->sm->hasNotificationActiveIs( true );
   this->root().doInputScan();
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( MachineReactionsTest, AZombieDoesNotReact ) {
   this->grow( 1, 0 );
   this->startSynchronous();
   this->child( "p0" )->quonDoZombieReactors( true );
   this->tree.addClass( "p0", "unheard" );
   EXPECT_THAT( this->known(), IsEmpty() );
   this->child( "p0" )->quonDoZombieReactors( false );
   this->tree.addClass( "p0", "heard" );
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
   this->sm->quonDoZombieReactors( true );
   EXPECT_TRUE( this->sm->isZombie() );
   Lumo::CapturingTraceSink traces;
   this->sm->inputSmScanState()->inputScanIs( false );
   EXPECT_THAT( traces.messages, IsEmpty() );
   this->sm->quonDoZombieReactors( false );
}

TYPED_TEST( MachineReactionsTest, AMachineThatSomebodyElseMadeDeafIsTakenDownLikeAnyOther ) {
   this->grow( 1, 2 );
   this->startSynchronous();
   const auto deaf = this->child( "p0" );
   deaf->quonDoZombieReactors( true );
   EXPECT_THROW( this->tree.addPolicy( "p0" ), Quon::ReinstantiatingException );
   EXPECT_EQ( this->child( "p0" ), deaf );
   this->tree.removePolicy( "p0" );
   EXPECT_FALSE( this->child( "p0" ) );
   EXPECT_FALSE( deaf->parent() );
   EXPECT_THAT( this->known(), IsEmpty() );
   this->grow( 1, 2 );
   EXPECT_THAT( this->known(), SizeIs( 2 ) );
}

TYPED_TEST( MachineReactionsTest, DeletingEverythingTakesDownADeafMachineToo ) {
   this->grow( 2, 2 );
   this->startSynchronous();
   this->child( "p0" )->quonDoZombieReactors( true );
   this->sm->doDeleteAll();
   EXPECT_FALSE( this->child( "p0" ) );
   EXPECT_THAT( this->known(), IsEmpty() );
}

TYPED_TEST( MachineReactionsTest, OnlyTheInputScanFlagIsReactedTo ) {
   this->startSynchronous();
   Lumo::CapturingTraceSink traces;
   this->sm->inputSmScanState()->idleIs( false );
   this->sm->inputSmScanState()->idleIs( true );
   EXPECT_THAT( traces.messages, IsEmpty() );
   this->sm->inputSmScanState()->inputScanIs( false );
   EXPECT_FALSE( traces.messages.empty() );
}

// The machines of the policy maps ----------------------------------------------------------------

TYPED_TEST( MachineReactionsTest, TheMachineOfTheSamePolicyMapIsKept ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto child = this->child( "p0" );
   child->parentIs( nullptr );
   this->root().handlePolicyMapCounters0( PolicyMapKey( "p0" ) );
   EXPECT_EQ( this->child( "p0" ), child );
   EXPECT_EQ( child->parent(), &this->root() );
   EXPECT_EQ( child->root(), &this->root() );
   EXPECT_EQ( child->smKey(), PolicyMapKey( "p0" ) );
}

TYPED_TEST( MachineReactionsTest, APolicyMapWhoseEntityChangedIsRefusedAndTheOldMachineStays ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   const auto child = this->child( "p0" );
   EXPECT_THROW( this->tree.addPolicy( "p0" ), Quon::ReinstantiatingException );
   EXPECT_EQ( this->child( "p0" ), child );
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
   this->tree.removePolicy( "p0" );
   EXPECT_FALSE( this->child( "p0" ) );
   EXPECT_THAT( this->known(), IsEmpty() );
   this->tree.addClass( "p0", "c1" );
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
}

TYPED_TEST( MachineReactionsTest, ANullPolicyMapCannotHaveAMachine ) {
   this->startSynchronous();
   EXPECT_THROW( this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs(
                    nullptr, &this->root() ),
                 Quon::NullPointerException );
}

TYPED_TEST( MachineReactionsTest, MachinesCanBeLookedUpAndLetGo ) {
   this->grow( 3, 1 );
   this->startSynchronous();
   EXPECT_FALSE( this->child( "nowhere" ) );
   const auto one = this->child( "p0" );
   this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstDel(
      PolicyMapKey( "p0" ) );
   EXPECT_FALSE( this->child( "p0" ) );
   EXPECT_FALSE( one->parent() ); // It may outlive the root.
   const auto other = this->child( "p1" );
   this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstDelAll();
   EXPECT_FALSE( this->child( "p1" ) );
   EXPECT_FALSE( other->parent() );
   EXPECT_THAT( this->known(), SizeIs( 3 ) ); // What they contributed stays.
   this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs(
      other->en(), &this->root() );
   EXPECT_NE( this->child( "p1" ), other );
   EXPECT_TRUE( this->child( "p1" )->initialized() );
}

// The end ----------------------------------------------------------------------------------------

TYPED_TEST( MachineReactionsTest, BeforeTheSecondPassDeletingEverythingChangesNothing ) {
   this->table->shortKeyIs( World::longKey( "p0", "c0" ), 77 );
   this->startAndYield( 3 );
   this->sm->doDeleteAll();
   EXPECT_THAT( this->known(), SizeIs( 1 ) );
   EXPECT_TRUE( this->backlog->backlog().empty() );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(), SizeIs( 3 ) );
}

TYPED_TEST( MachineReactionsTest, EventsBeforeTheSecondPassChangeNothing ) {
   this->startAndYield( 3 );
   const std::string first = this->policies()[0];
   this->tree.addClass( first, "early" );
   this->tree.addClass( "brand new", "early" );
   this->tree.count( first, "early", 5 );
   this->tree.removeClass( first, "c0" );
   EXPECT_THAT( this->known(), IsEmpty() );
   EXPECT_EQ( this->table->nextKey(), 0U );
   EXPECT_TRUE( this->backlog->backlog().empty() );
}

TYPED_TEST( MachineReactionsTest, DeletingEverythingWithdrawsAllThatCameFromTheInput ) {
   this->table->shortKeyIs( World::longKey( "elsewhere", "c" ), 77 );
   this->grow( 3, 2 );
   this->startSynchronous();
   ASSERT_THAT( this->known(), SizeIs( 7 ) );
   const auto child = this->child( "p0" );
   Lumo::CapturingTraceSink traces;
   this->sm->doDeleteAll();
   EXPECT_THAT( this->known(), UnorderedElementsAre( testing::Pair( testing::_, 77 ) ) );
   EXPECT_EQ( this->table->nextKey(), 6U );
   EXPECT_FALSE( this->child( "p0" ) );
   EXPECT_FALSE( child->parent() );
   std::vector< std::string > entered;
   for ( const auto & message : traces.messages ) {
      if ( message.level == 9 ) { entered.push_back( message.function ); }
   }
   EXPECT_THAT( entered, Each( testing::HasSubstr( "doDeleteAll" ) ) );
}

TYPED_TEST( MachineReactionsTest, DeletingEverythingWithoutARootMachineIsHarmless ) {
   this->startSynchronous();
   TypeParam::rootDel( *this->sm );
   this->sm->doDeleteAll();
   EXPECT_FALSE( TypeParam::root( *this->sm ) );
}

TYPED_TEST( MachineReactionsTest, TheEndLeavesTheTableAsItIsAndNobodySubscribed ) {
   this->grow( 2, 2 );
   this->startSynchronous();
   const auto scanState = this->sm->inputSmScanState();
   const auto root = TypeParam::root( *this->sm );
   const auto child = this->child( "p0" );
   this->sm = nullptr;
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
   EXPECT_EQ( this->table->nextKey(), 4U );
   EXPECT_FALSE( this->tree.root->publisher()->hasSubscribers() );
   EXPECT_FALSE( this->tree.policyMap( "p0" )->publisher()->hasSubscribers() );
   EXPECT_FALSE( scanState->publisher()->hasSubscribers() );
   // Whoever still holds parts of it has them without the rest.
   EXPECT_FALSE( root->parent() );
   EXPECT_TRUE( root->isZombie() );
   root->doInputScan();
   root->doDeleteAll();
   child->doInputScan();
   this->tree.addClass( "p0", "unheard" );
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
}

TYPED_TEST( MachineReactionsTest, AMachineDroppedWhileItsScanIsYieldedNeverRunsAgain ) {
   this->startAndYield( 4 );
   EXPECT_EQ( this->loop.pending(), 1U );
   this->sm = nullptr;
   EXPECT_EQ( this->loop.pending(), 0U );
   EXPECT_THAT( this->known(), IsEmpty() );
}

TYPED_TEST( MachineReactionsTest, AMachineDroppedInsideItsOwnSliceEndsWithIt ) {
   this->startAndYieldInTheSecondPass( 4 );
   {
      ActsOnTrace dropper( "k: ", [&] { this->sm = nullptr; } );
      this->loop.runOne();
      EXPECT_GT( dropper.times, 0 );
   }
   EXPECT_EQ( this->loop.pending(), 0U );
   EXPECT_FALSE( this->tree.root->publisher()->hasSubscribers() );
}

TYPED_TEST( MachineReactionsTest, AMachineDroppedInsideAReactionEndsWithIt ) {
   this->grow( 2, 2 );
   this->startSynchronous();
   {
      ActsOnTrace dropper( "k: ", [&] { this->sm = nullptr; } );
      this->tree.addClass( "p0", "new" );
      EXPECT_EQ( dropper.times, 1 );
   }
   EXPECT_FALSE( this->tree.root->publisher()->hasSubscribers() );
   EXPECT_NE( this->shortKey( "p0", "new" ), 0U ); // The event in progress was finished.
}

} // namespace
} // namespace VeloSdkRpc::test
