#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/BothMachinesTest.h"

/// How the twin machines are set up, and what a start looks like from outside.

namespace VeloSdkRpc::test {
namespace {

using detail::InputScanState;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

template< class Machine >
class MachineStartTest : public BothMachinesTest< Machine > {};
TYPED_TEST_SUITE( MachineStartTest, BothMachines );

TYPED_TEST( MachineStartTest, AnEmptyInputFinishesBothPassesAtOnceAndTheOutputsBecomeReady ) {
   this->startSynchronous();
   EXPECT_TRUE( this->sm->initialScanDone() );
   EXPECT_TRUE( this->sm->inputSmScanState()->inputScan() );
   EXPECT_EQ( this->root().inputScanState0(), InputScanState::complete );
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_TRUE( this->sm->idle() );
}

TYPED_TEST( MachineStartTest, AnEmptyInputIsReadyAfterOneRunOfAnAsynchronousMachine ) {
   this->loop.alwaysYields();
   this->startAsynchronous();
   EXPECT_TRUE( this->sm->initialScanDone() );
   EXPECT_FALSE( this->sm->ready() );
   EXPECT_FALSE( this->sm->inputSmScanState()->inputScan() );
   EXPECT_EQ( this->loop.runUntilIdle(), 1U );
   EXPECT_TRUE( this->sm->inputSmScanState()->inputScan() );
   EXPECT_TRUE( this->sm->ready() );
}

TYPED_TEST( MachineStartTest, InSynchronousModeThereIsNoTaskAndTheScanRunsInsideTheCall ) {
   this->grow( 3, 3 );
   this->loop.alwaysYields();
   int asks = 0;
   this->loop.countsAsks( asks );
   this->startSynchronous();
   EXPECT_TRUE( this->sm->synchronous() );
   EXPECT_FALSE( this->root().task0() );
   EXPECT_EQ( this->loop.pending(), 0U );
   EXPECT_EQ( asks, 0 );
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_THAT( this->known(), SizeIs( 9 ) );
}

TYPED_TEST( MachineStartTest, OnlyTheAsynchronousChoiceMakesAMachineAsynchronous ) {
   for ( const int choice : { 0, 1, 3, 255 } ) {
      this->start( static_cast< std::uint8_t >( choice ) );
      EXPECT_TRUE( this->sm->synchronous() ) << choice;
   }
   this->start( kAsynchronous );
   EXPECT_FALSE( this->sm->synchronous() );
   EXPECT_TRUE( TypeParam::Sm::defaultSynchronous() );
}

TYPED_TEST( MachineStartTest, TheFirstPassOnlyBuildsTheMachines ) {
   this->grow( 2, 2 );
   Lumo::CapturingTraceSink traces;
   this->loop.endlessSlices();
   this->startAsynchronous();
   EXPECT_TRUE( this->child( "p0" ) );
   EXPECT_TRUE( this->child( "p1" ) );
   EXPECT_THAT( this->known(), IsEmpty() );
   EXPECT_EQ( this->table->nextKey(), 0U );
   EXPECT_THAT( leavesFed( traces ), IsEmpty() );
   this->loop.runUntilIdle();
   EXPECT_THAT( this->known(), SizeIs( 4 ) );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 4 ) );
}

TYPED_TEST( MachineStartTest, ShortKeysAreHandedOutInScanOrder ) {
   this->grow( 3, 3 );
   this->startSynchronous();
   std::uint64_t expected = 0;
   for ( const std::string & policy : this->policies() ) {
      for ( const std::string & name : this->classes( policy ) ) {
         EXPECT_EQ( this->shortKey( policy, name ), ++expected );
      }
   }
   EXPECT_EQ( this->table->nextKey(), 9U );
}

TYPED_TEST( MachineStartTest, TheControlIsCopied ) {
   Ivx::SmControl control( nullptr, 7, "MachineStartTest", kAsynchronous );
   this->sm = TypeParam::make( *this, control );
   EXPECT_FALSE( control.scheduler() );
   EXPECT_EQ( this->sm->scheduler(), this->loop.scheduler() ); // the process's
   EXPECT_EQ( this->sm->priority(), 7 );
   EXPECT_EQ( this->sm->ilexControl().traceHandleName(), "MachineStartTest" );
   EXPECT_EQ( this->root().task0()->taskScheduler(), this->loop.scheduler() );
   this->sm->priorityIs( 9 );
   EXPECT_EQ( this->sm->priority(), 9 );
   const auto other = Lumo::makeNode< Oru::TaskScheduler >();
   this->sm->schedulerIs( other );
   EXPECT_EQ( this->sm->scheduler(), other );
}

TYPED_TEST( MachineStartTest, TheSchedulerOfTheControlIsPreferredToTheProcesss ) {
   const auto mine = Lumo::makeNode< Oru::TaskScheduler >();
   this->sm = TypeParam::make( *this, Ivx::SmControl( mine, 0, {}, kAsynchronous ) );
   EXPECT_EQ( this->root().task0()->taskScheduler(), mine );
   EXPECT_EQ( this->loop.pending(), 0U );
}

TYPED_TEST( MachineStartTest, EverythingIsTracedThroughTheHandleThatTheControlNames ) {
   this->grow( 1, 1 );
   Lumo::CapturingTraceSink traces( "MachineStartTest.mine" );
   this->sm = TypeParam::make( *this, Ivx::SmControl( nullptr, 0, "MachineStartTest.mine", 1 ) );
   EXPECT_FALSE( leavesFed( traces ).empty() );
   const auto other = Lumo::makeNode< Lumo::TraceHandle >( "MachineStartTest.other" );
   other->levelsIs( Lumo::traceLevels( 0, 9 ) );
   this->sm->qtHandleIs( other.get() );
   traces.messages.clear();
   this->tree.addClass( "p0", "c1" );
   ASSERT_FALSE( traces.messages.empty() );
   for ( const auto & message : traces.messages ) {
      EXPECT_EQ( message.handle, "MachineStartTest.other" );
   }
}

TYPED_TEST( MachineStartTest, BothFactoriesTurnNotificationsOn ) {
   this->grow( 1, 0 );
   for ( const auto factory : { &TypeParam::make, &TypeParam::makeToo } ) {
      this->sm = factory( *this, this->control( kSynchronous ) );
      EXPECT_TRUE( this->sm->hasNotificationActive() );
      EXPECT_TRUE( this->root().hasNotificationActive() );
      const auto child = this->child( "p0" );
      ASSERT_TRUE( child );
      EXPECT_TRUE( child->hasNotificationActive() );
   }
}

TYPED_TEST( MachineStartTest, TheRootArgumentMustNotBeNull ) {
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( TypeParam::makeWithoutRoot( *this ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().front().condition(),
              "root() && \"Pointer SM args cannot be null unless they are marked Optional\"" );
}

TYPED_TEST( MachineStartTest, ANullInputIsFoundWhenItIsScanned ) {
   this->startSynchronous();
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( TypeParam::rootIs( *this->sm, nullptr ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().front().condition(),
              "en() && \"Sm args can only be null if marked as Optional in the SM type "
              "declaration\"" );
}

TYPED_TEST( MachineStartTest, ItIsSetUpOnce ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   Lumo::CapturingTraceSink traces;
   this->sm->handleInitialized();
   this->sm->handleInitialScanDone();
   EXPECT_THAT( traces.messages, IsEmpty() );
}

TYPED_TEST( MachineStartTest, ASynchronousStartIsTracedStepByStep ) {
   Lumo::CapturingTraceSink traces;
   this->startSynchronous();
   const std::string root = TypeParam::kRootName;
   std::vector< std::string > life;
   for ( const std::string & text : textsAt( traces, 9 ) ) {
      for ( const char * one :
            { "create", "initialized", "Initial", "Reconciling", "Input scans" } ) {
         if ( text.starts_with( one ) ) { life.push_back( text ); }
      }
      if ( text.ends_with( "scan, and parent scan, complete." ) ) { life.push_back( text ); }
   }
   std::vector< std::string > expected;
   if ( TypeParam::outputs().size() == 4 ) {
      expected = { "Reconciling backlogBacklogOutput: false",
                   "Reconciling shortKeysNovelKeyOutput: false" };
   }
   const auto then = [&]( const std::string & text ) { expected.push_back( text ); };
   then( "create local SMs" );
   then( "create non-public arg SMs" );
   if ( TypeParam::outputs().size() == 2 ) {
      then( "Initial scan yielding for child SM CompressedKeyTableSm." );
   }
   then( root + " initial scan, and parent scan, complete." );
   then( "initialized" );
   then( "Initial scan done for child SMs. Now scanning with events triggered." );
   for ( const std::string & output : TypeParam::outputs() ) {
      then( "Input scans for " + output + " complete" );
   }
   then( root + " scan, and parent scan, complete." );
   EXPECT_THAT( life, ElementsAreArray( expected ) );
   EXPECT_EQ( traces.messages.front().level, 8 ); // handleInitialized is entered
}

TYPED_TEST( MachineStartTest, TheMachinesTraceThatTheyAreToScan ) {
   this->grow( 2, 0 );
   Lumo::CapturingTraceSink traces;
   this->startSynchronous();
   const std::string scan = " doInputScan";
   EXPECT_EQ( traces.count( 9, TypeParam::kRootName + scan ), 2U ); // One for each pass.
   EXPECT_EQ( traces.count( 9, TypeParam::kChildName + scan ), 2U );
   this->child( "p0" )->doInputScan();
   EXPECT_EQ( traces.count( 9, TypeParam::kChildName + scan ), 3U );
}

TYPED_TEST( MachineStartTest, TheRootMachineListensOnlyBehindItsFirstPass ) {
   int passes = 0;
   const ActsOnTrace looks( TypeParam::kRootName + std::string( " doInputScan" ), [&] {
      EXPECT_EQ( this->tree.root->publisher()->hasSubscribers(), passes++ == 1 );
   } );
   this->startSynchronous();
   EXPECT_EQ( passes, 2 );
}

TYPED_TEST( MachineStartTest, TheInitialScanIsNotDoneBeforeTheInputScanIs ) {
   this->startAndYield( 3 );
   Lumo::CapturingTraceSink traces;
   this->sm->handleInitialScanDone();
   EXPECT_TRUE( traces.has( 9, " input scan is false" ) );
   EXPECT_FALSE( this->sm->initialScanDone() );
}

TYPED_TEST( MachineStartTest, TheInitialScanWaitsForTheRootMachine ) {
   this->startAndYield( 3 );
   TypeParam::rootDel( *this->sm );
   Lumo::CapturingTraceSink traces;
   this->sm->inputSmScanState()->inputScanIs( true );
   EXPECT_TRUE( traces.has( 9, std::string( "Initial scan yielding for child SM " ) +
                                  TypeParam::kName + "." ) );
   EXPECT_FALSE( this->sm->initialScanDone() );
}

TYPED_TEST( MachineStartTest, ReadinessNeedsAnOutputStateAndIdlenessTheEventScan ) {
   this->loop.alwaysYields();
   this->grow( 2, 0 );
   this->startAsynchronous();
   EXPECT_FALSE( this->sm->idle() );
   this->loop.runUntilIdle();
   EXPECT_TRUE( this->sm->ready() );
   EXPECT_TRUE( this->sm->idle() );
   this->sm->inputSmScanState()->idleIs( false );
   EXPECT_FALSE( this->sm->idle() );
   this->sm->outputStateDel();
   EXPECT_FALSE( this->sm->ready() );
   EXPECT_FALSE( this->sm->idle() );
}

TYPED_TEST( MachineStartTest, AReadySynchronousMachineIsIdleWhateverTheScanStateSays ) {
   this->startSynchronous();
   EXPECT_TRUE( this->sm->inputSmScanState()->idle() );
   this->sm->inputSmScanState()->idleIs( false );
   EXPECT_TRUE( this->sm->idle() );
   this->sm->inputSmScanState()->inputScanIs( false );
   EXPECT_TRUE( this->sm->idle() );
}

TYPED_TEST( MachineStartTest, ASecondCallOfAReadyOutputsHandlersIsOnlyTraced ) {
   this->startSynchronous();
   Lumo::CapturingTraceSink traces;
   this->sm->inputSmScanState()->inputScanIs( false ); // its reaction calls them
   EXPECT_EQ( traces.count( 9, " already ready, not reconciling." ), TypeParam::outputs().size() );
   EXPECT_TRUE( this->sm->ready() );
}

} // namespace
} // namespace VeloSdkRpc::test
