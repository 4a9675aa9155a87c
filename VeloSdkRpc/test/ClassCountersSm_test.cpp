#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/BacklogMachineTest.h"

/// The machines of the classes, which only the backlog machine has.

namespace VeloSdkRpc::test {
namespace {

using IlexCode::PbrCountersBacklogSm::ClassCountersSm2;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ClassMachineTest : public BacklogMachineTest {};

TEST_F( ClassMachineTest, TheMachinesOfTheClassesAreScannedTwiceAndComplete ) {
   tree.addClass( "p", "A" );
   Lumo::CapturingTraceSink traces;
   loop.endlessSlices();
   start( kAsynchronous );
   EXPECT_EQ( traces.count( 9, "ClassCountersSm2 initial scan complete. " ), 1U );
   const auto machine = classMachine( "p", "A" );
   EXPECT_TRUE( machine->initialized() );
   EXPECT_FALSE( machine->inputScanComplete0() ); // Events count, and it was not fed yet.
   EXPECT_FALSE( machine->synchronous() );
   loop.runUntilIdle();
   EXPECT_EQ( traces.count( 9, "ClassCountersSm2 scan complete. " ), 1U );
   EXPECT_TRUE( machine->inputScanComplete0() );
   EXPECT_EQ( machine->parent(), child( "p" ).get() );
   EXPECT_EQ( machine->root(), &root() );
   EXPECT_FALSE( machine->shouldYield0() );
   EXPECT_FALSE( machine->inTask0() );
   traces.messages.clear();
   machine->doInputScan0();
   EXPECT_THAT( textsAt( traces, 9 ),
                ElementsAre( " scan complete: true resumed: false scan: true" ) );
   EXPECT_THAT( traces.messages, SizeIs( 1 ) );
   EXPECT_TRUE( machine->inputScanState0() == 2 );
}

TEST_F( ClassMachineTest, AClassMachineWithoutAnEntityIsFatalWhenItIsScannedOrHeard ) {
   tree.addPolicy( "p" );
   start( kSynchronous );
   const auto machine = Lumo::makeNode< ClassCountersSm2 >( nullptr, child( "p" ).get() );
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( machine->handleInitialized(), Lumo::AssertionThrown );
   EXPECT_THROW( machine->handleCountData0(), Lumo::AssertionThrown );
   ASSERT_THAT( assertions.failures(), SizeIs( 2 ) );
   for ( const auto & failure : assertions.failures() ) {
      EXPECT_EQ( failure.condition(), "en() && \"Sm args can only be null if marked as Optional in "
                                      "the SM type declaration\"" );
   }
}

TEST_F( ClassMachineTest, AReactionOfAClassSetsTheRootsInReactorFlag ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   int heard = 0;
   const auto listening = onBacklog( [&]( std::uint64_t, const PbrCounters * value ) {
      heard += value != nullptr;
      EXPECT_EQ( root().inReactor(), value != nullptr );
      EXPECT_EQ( classMachine( "p", "A" )->inReactor(), value != nullptr );
   } );
   backlog->backlogDel( 1 );
   tree.count( "p", "A", 1 ); // The short way.
   {
      const Lumo::CapturingTraceSink traces;
      backlog->backlogDel( 1 );
      tree.count( "p", "A", 2 ); // By the rules.
   }
   EXPECT_EQ( heard, 2 );
   EXPECT_FALSE( root().inReactor() );
   classMachine( "p", "A" )->inReactorIs( true );
   EXPECT_TRUE( root().inReactor() );
   classMachine( "p", "A" )->inReactorIs( false );
   EXPECT_FALSE( root().inReactor() );
}

TEST_F( ClassMachineTest, AClassMachineThatSomebodyElseMadeDeafIsTakenDownLikeAnyOther ) {
   const auto old = tree.addClass( "p", "A" );
   start( kSynchronous );
   classMachine( "p", "A" )->quonDoZombieReactors( true );
   EXPECT_THROW( tree.addClass( "p", "A" ), Quon::ReinstantiatingException );
   EXPECT_EQ( classMachine( "p", "A" )->en(), old );
   tree.removeClass( "p", "A" );
   EXPECT_FALSE( classMachine( "p", "A" ) );
   EXPECT_TRUE( record( 1 ).deletedKey() );
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
}

TEST_F( ClassMachineTest, ALetGoClassMachineTellsNothing ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   const auto machine = classMachine( "p", "A" );
   tree.removeClass( "p", "A" );
   machine->handleCountData0();
   machine->doDeleteAll();
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
   EXPECT_TRUE( record( 1 ).deletedKey() );
}

TEST_F( ClassMachineTest, ALetGoClassMachineDoesNothingWhenCalled ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   const auto machine = classMachine( "p", "A" );
   child( "p" )->childSmClassCountersPolicyMapCountersCountersDataPtrConstDel( "A" );
   ASSERT_FALSE( machine->parent() );
   const auto arrived = backlog->account().arrived;
   const Lumo::CapturingTraceSink traces;
   machine->doInputScan();
   machine->handleCountData0Reactor();
   EXPECT_THAT( traces.messages, IsEmpty() );
   EXPECT_EQ( backlog->account().arrived, arrived );
}

TEST_F( ClassMachineTest, AClassMachineWithoutAnEntityIsFatalWhenItIsWithdrawn ) {
   tree.addPolicy( "p" );
   start( kSynchronous );
   const auto machine = Lumo::makeNode< ClassCountersSm2 >( nullptr, child( "p" ).get() );
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( machine->doDeleteAll(), Lumo::AssertionThrown );
}

TEST_F( ClassMachineTest, AnotherAttributeOfTheCountersIsNothingToItsMachine ) {
   const auto counters = tree.addClass( "p", "A" );
   start( kSynchronous );
   const auto arrived = backlog->account().arrived;
   const short another = CountersData::kCountData + 1;
   counters->publisher()->publishChange( another, nullptr );
   EXPECT_EQ( backlog->account().arrived, arrived );
}

TEST_F( ClassMachineTest, WhoIsToldOfARecordFindsTheScanOfItsClassComplete ) {
   tree.addClass( "p", "A" );
   loop.endlessSlices();
   start( kAsynchronous );
   int told = 0;
   const auto looks = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
      ++told;
      EXPECT_TRUE( classMachine( "p", "A" )->inputScanComplete0() );
   } );
   loop.runUntilIdle();
   EXPECT_EQ( told, 1 );
}

TEST_F( ClassMachineTest, AClassMachineTracesThatItIsToScan ) {
   tree.addClass( "p", "A" );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   EXPECT_EQ( traces.count( 9, "ClassCountersSm2 doInputScan" ), 1U );
   classMachine( "p", "A" )->doInputScan();
   EXPECT_EQ( traces.count( 9, "ClassCountersSm2 doInputScan" ), 2U );
}

TEST_F( ClassMachineTest, OnlyTheMachineOfThePolicyMapOfThisRootTakesItsClasses ) {
   tree.addClass( "p", "A" );
   tree.addPolicy( "q" );
   start( kSynchronous );
   const auto en = classMachine( "p", "A" )->en();
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( child( "q" )->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs(
                    en, child( "p" ).get() ),
                 Lumo::AssertionThrown );
   EXPECT_FALSE( classMachine( "q", "A" ) );
   EXPECT_NO_THROW( child( "q" )->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs(
      en, child( "q" ).get() ) );
   EXPECT_TRUE( classMachine( "q", "A" ) );
}

TEST_F( ClassMachineTest, ANullEntityIsRefusedBeforeAnythingElseIsLookedAt ) {
   tree.addPolicy( "p" );
   start( kSynchronous );
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW(
      child( "p" )->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs( nullptr, nullptr ),
      Quon::NullPointerException );
}

TEST_F( ClassMachineTest, NotificationsThatAreOnAlreadyLeaveADeafClassMachineDeaf ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   classMachine( "p", "A" )->hasNotificationActiveIs( false );
   child( "p" )->hasNotificationActiveIs( true );
   EXPECT_FALSE( classMachine( "p", "A" )->hasNotificationActive() );
}

TEST_F( ClassMachineTest, DeletingEverythingIsTracedOnceByEveryMachine ) {
   for ( const char * name : { "A", "B", "C" } ) { tree.addClass( "p", name ); }
   tree.addClass( "q", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   sm->doDeleteAll();
   EXPECT_EQ( traces.count( 9, "doDeleteAll" ), 4U + 2U + 1U );
}

TEST_F( ClassMachineTest, AClassMachineAsksTheRootsTask ) {
   tree.addClass( "p", "A" );
   tree.addPolicy( "q" );
   loop.alwaysYields();
   start( kAsynchronous );
   loop.runOne();
   const auto machine = classMachine( "p", "A" );
   EXPECT_EQ( machine->shouldYield0(), root().shouldYield0() );
   EXPECT_TRUE( machine->shouldYield0() );
}

TEST_F( ClassMachineTest, ClassMachinesCanBeLookedUpAndLetGo ) {
   tree.addClass( "p", "A" );
   tree.addClass( "p", "B" );
   start( kSynchronous );
   const auto above = child( "p" );
   const auto a = classMachine( "p", "A" );
   const auto b = classMachine( "p", "B" );
   EXPECT_FALSE( classMachine( "p", "C" ) );
   EXPECT_THROW(
      above->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs( nullptr, above.get() ),
      Quon::NullPointerException );
   above->childSmClassCountersPolicyMapCountersCountersDataPtrConstDel( "A" );
   EXPECT_FALSE( classMachine( "p", "A" ) );
   EXPECT_FALSE( a->parent() );
   tree.count( "p", "A", 9 ); // Heard by nobody.
   above->childSmClassCountersPolicyMapCountersCountersDataPtrConstDelAll();
   EXPECT_FALSE( b->parent() );
   above->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs( b->en(), above.get() );
   EXPECT_NE( classMachine( "p", "B" ), b );
   above->childSmClassCountersPolicyMapCountersCountersDataPtrConstIs( b->en(), above.get() );
   EXPECT_THAT( known(), SizeIs( 2 ) );
}

TEST_F( ClassMachineTest, NotificationsReachTheClassMachines ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   EXPECT_TRUE( classMachine( "p", "A" )->hasNotificationActive() );
   sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( classMachine( "p", "A" )->hasNotificationActive() );
   Lumo::CapturingTraceSink traces;
   tree.count( "p", "A", 1 );
   EXPECT_THAT( traces.messages, IsEmpty() );
   sm->hasNotificationActiveIs( true );
   tree.count( "p", "A", 2 );
   EXPECT_EQ( filings( traces, 1 ), 1U );
}

} // namespace
} // namespace VeloSdkRpc::test
