#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/detail/IlexPrint.h"
#include "VeloSdkRpc/test/Machines.h"

/// The rules of the machine that keeps the key compression table in step.

namespace VeloSdkRpc::test {
namespace {

using detail::ilexPrint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char * kFilterFailed =
   "filter( ( bool( countersPtr ) != bool( shortKey ) ) ) failed, terminating pipeline";

class CompressedKeyTableSmTest : public MachineTest< KeyTableMachine > {
 protected:
   using Counters = Quon::Optional< CompressedKeyTableSm::CountersPtr >;

   /// The machine's two output-ready texts, in the order in which they were traced.
   static std::vector< std::string > completed( const Lumo::CapturingTraceSink & traces ) {
      std::vector< std::string > all;
      for ( const std::string & text : textsAt( traces, 9 ) ) {
         if ( text.starts_with( "Input scans for " ) ) { all.push_back( text ); }
      }
      return all;
   }
   std::string eventText( const std::string & policy, const std::string & name,
                          const Counters & counters ) const {
      return "input = from( root.policyMapCounters[].classCounters[] ): policyKey=" +
             ilexPrint( PolicyMapKey( policy ) ) + " name=" + name +
             " countersPtr=" + ilexPrint( counters );
   }
};

TEST_F( CompressedKeyTableSmTest, AFreshTableGetsOneAndTwoInTheOrderOfTheClasses ) {
   tree.addClass( "p", "A" );
   tree.addClass( "p", "B" );
   start( kSynchronous );
   EXPECT_EQ( shortKey( "p", classes( "p" )[0] ), 1U );
   EXPECT_EQ( shortKey( "p", classes( "p" )[1] ), 2U );
   EXPECT_EQ( table->nextKey(), 2U );
}

TEST_F( CompressedKeyTableSmTest, AClassThatGoesAndComesBackGetsANewKey ) {
   tree.addClass( "p", "A" );
   tree.addClass( "p", "B" );
   start( kSynchronous );
   tree.removeClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
   EXPECT_EQ( table->nextKey(), 2U );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 3U );
}

TEST_F( CompressedKeyTableSmTest, ARestartKeepsKnownKeysAddsNewOnesAndLeavesStrangersAlone ) {
   table->shortKeyIs( longKey( "p", "A" ), 1 );
   table->shortKeyIs( longKey( "p", "B" ), 2 );
   table->nextKeyIs( 2 );
   tree.addClass( "p", "A" );
   tree.addClass( "p", "C" );
   start( kSynchronous );
   EXPECT_THAT( known(),
                UnorderedElementsAre( Pair( Pair( "p", "A" ), 1 ), Pair( Pair( "p", "B" ), 2 ),
                                      Pair( Pair( "p", "C" ), 3 ) ) );
   EXPECT_TRUE( sm->ready() );
}

TEST_F( CompressedKeyTableSmTest, ARestartTakesTheKeyOfAClassThatHasNoCountersAnyMore ) {
   table->shortKeyIs( longKey( "p", "A" ), 1 );
   table->nextKeyIs( 1 );
   tree.addClassWithoutCounters( "p", "A" );
   start( kSynchronous );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_EQ( table->nextKey(), 1U );
}

TEST_F( CompressedKeyTableSmTest,
        AnEventForAKnownClassWithCountersFailsTheFilterAndChangesNothing ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.addClass( "p", "A", 5 );
   EXPECT_TRUE( traces.has( 6, kFilterFailed ) );
   EXPECT_THAT( leavesFed( traces ), SizeIs( 1 ) );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
   EXPECT_EQ( table->nextKey(), 1U );
}

TEST_F( CompressedKeyTableSmTest, AnUnknownClassWithoutCountersFailsTheFilterToo ) {
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.addClassWithoutCounters( "p", "A" );
   EXPECT_EQ( traces.count( 6, kFilterFailed ), 1U );
   tree.removeClass( "p", "A" );
   EXPECT_EQ( traces.count( 6, kFilterFailed ), 2U );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_EQ( table->nextKey(), 0U );
}

TEST_F( CompressedKeyTableSmTest, APointerThatIsNullCountsAsNoCounters ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.addClassWithoutCounters( "p", "A" );
   EXPECT_TRUE( traces.has( 7, eventText( "p", "A", Counters( nullptr ) ) ) );
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
}

TEST_F( CompressedKeyTableSmTest, ANewClassIsTracedStepByStepAndTheNextKeyIsWrittenFirst ) {
   start( kSynchronous );
   tree.addPolicy( "p" );
   {
      ActsOnTrace probe( "into( shortKeys.nextKey )", [&] { EXPECT_EQ( table->nextKey(), 0U ); } );
      tree.addClass( "p", "first" );
      EXPECT_EQ( probe.times, 1 );
   }
   {
      ActsOnTrace probe( "into( shortKeys.shortKey[ countersKey ] ): inserting", [&] {
         EXPECT_EQ( table->nextKey(), 2U );
         EXPECT_EQ( shortKey( "p", "second" ), 0U );
      } );
      tree.addClass( "p", "second" );
      EXPECT_EQ( probe.times, 1 );
   }
   Lumo::CapturingTraceSink traces;
   const auto counters = tree.addClass( "p", "A" );
   EXPECT_THAT( textsAt( traces, 7 ),
                ElementsAre( eventText( "p", "A", Counters( counters ) ),
                             "into( shortKeys.nextKey ): inserting value=3",
                             "into( shortKeys.shortKey[ countersKey ] ): inserting k1=" +
                                ilexPrint( longKey( "p", "A" ) ) + ", value=3" ) );
   EXPECT_THAT( textsAt( traces, 6 ), IsEmpty() );
}

TEST_F( CompressedKeyTableSmTest, AClassThatGoesIsTracedStepByStep ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.removeClass( "p", "A" );
   EXPECT_THAT( textsAt( traces, 7 ),
                ElementsAre( eventText( "p", "A", Counters( nullptr ) ),
                             "into( shortKeys.shortKey[ countersKey ] ): deleting k1=" +
                                ilexPrint( longKey( "p", "A" ) ) ) );
}

TEST_F( CompressedKeyTableSmTest, APolicyMapThatGoesWithdrawsItsClassesWithAnAbsentValue ) {
   tree.addClass( "p", "A" );
   tree.addClass( "q", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.removePolicy( "p" );
   EXPECT_TRUE( traces.has( 7, eventText( "p", "A", Counters() ) ) );
   EXPECT_THAT( known(), SizeIs( 1 ) );
}

TEST_F( CompressedKeyTableSmTest, DeletingEverythingIsTracedOnceByEveryMachine ) {
   tree.addClass( "p", "A" );
   tree.addClass( "q", "A" );
   start( kSynchronous );
   const Lumo::CapturingTraceSink traces;
   sm->doDeleteAll();
   EXPECT_EQ( traces.count( 9, "doDeleteAll" ), 2U + 1U );
   EXPECT_THAT( known(), IsEmpty() );
}

TEST_F( CompressedKeyTableSmTest, AClassThatBreaksWhenItIsWithdrawnIsToldAndKeepsNoOtherIn ) {
   for ( const char * name : { "A", "B", "C" } ) { tree.addClass( "p", name ); }
   start( kSynchronous );
   const ActsOnTrace breaks( "input = from(", [] { throw std::runtime_error( "no" ); } );
   EXPECT_THROW( sm->doDeleteAll(), std::runtime_error );
   EXPECT_THAT( known(), SizeIs( 1 ) );
}

TEST_F( CompressedKeyTableSmTest, AnEventIsTracedWithTheTextOfItsCounters ) {
   const auto counters = tree.addClass( "p", "A", 3 );
   std::ostringstream expected;
   Quon::printText( expected, counters );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   EXPECT_FALSE( expected.str().empty() );
   EXPECT_TRUE(
      traces.has( 7, "input = from( root.policyMapCounters[].classCounters[] ): policyKey=" +
                        ilexPrint( PolicyMapKey( "p" ) ) + " name=A countersPtr=Optional( " +
                        expected.str() + " )" ) );
}

TEST_F( CompressedKeyTableSmTest, NoveltyAndKeysWithAnAclRuleAreNeverTouched ) {
   const PbrCountersKey withRule( PolicyMapKey( "p" ), "A", "rule" );
   table->shortKeyIs( withRule, 9 );
   table->novelKeyIs( 9 );
   table->nextKeyIs( 9 );
   tree.addClass( "p", "A" );
   start( kSynchronous );
   tree.removePolicy( "p" );
   ASSERT_TRUE( table->shortKey()[withRule] );
   EXPECT_EQ( table->shortKey()[withRule]->value(), 9U );
   EXPECT_EQ( table->novelKey().size(), 1U );
   EXPECT_EQ( table->nextKey(), 10U );
}

TEST_F( CompressedKeyTableSmTest, ANullPolicyMapIsRefusedToTheOneWhoMakesIt ) {
   const auto refusal = []( auto && make ) {
      try {
         make();
      } catch ( const Quon::NullPointerException & error ) { return std::string( error.what() ); }
      return std::string( "not refused" );
   };
   start( kSynchronous );
   EXPECT_THAT( refusal( [&] { tree.root->policyMapCountersIs( PolicyMapKey( "p" ), nullptr ); } ),
                testing::HasSubstr( "argument \"en\"" ) );
   EXPECT_THAT( refusal( [&] { root().handlePolicyMapCounters0( PolicyMapKey( "p" ) ); } ),
                testing::HasSubstr( "argument \"en\"" ) );
   EXPECT_FALSE( child( "p" ) );
   tree.removePolicy( "p" );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
}

TEST_F( CompressedKeyTableSmTest, AScanPassesOverANullPolicyMapAndTracesIt ) {
   tree.addClass( "p", "A" );
   tree.root->policyMapCountersIs( PolicyMapKey( "null" ), nullptr );
   tree.addClass( "q", "A" );
   Lumo::CapturingTraceSink traces;
   start( kSynchronous );
   const std::string text =
      "k: " + ilexPrint( PolicyMapKey( "null" ) ) + " has no entity, passing over it";
   EXPECT_EQ( traces.count( 6, text ), 2U ); // Once in each pass.
   EXPECT_TRUE( sm->ready() );
   EXPECT_FALSE( child( "null" ) );
   EXPECT_THAT( known(), SizeIs( 2 ) );
}

TEST_F( CompressedKeyTableSmTest, ANullPolicyMapMadeWhileTheScanIsYieldedDoesNotKeepItFromEnding ) {
   tree.addClass( "p", "A" );
   loop.alwaysYields();
   start( kAsynchronous );
   EXPECT_THROW( tree.root->policyMapCountersIs( PolicyMapKey( "null" ), nullptr ),
                 Quon::NullPointerException );
   tree.addClass( "q", "A" );
   EXPECT_NO_THROW( loop.runUntilIdle() );
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( known(), SizeIs( 2 ) );
}

// Missed notifications ----------------------------------------------------------------------------

TEST_F( CompressedKeyTableSmTest, AChangeThatWasMissedIsFoundWhenThePolicyMapGoes ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   child( "p" )->hasNotificationActiveIs( false );
   tree.addClass( "p", "B" );
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( tree.removePolicy( "p" ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().front().message(),
              "We missed notifications that happened to classCounters before the enclosing "
              "entity got deleted" );
}

TEST_F( CompressedKeyTableSmTest, AMissedChangeStopsTheProcess ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   child( "p" )->hasNotificationActiveIs( false );
   tree.removeClass( "p", "A" );
   EXPECT_DEATH( tree.removePolicy( "p" ),
                 "We missed notifications that happened to classCounters before the enclosing "
                 "entity got deleted" );
}

TEST_F( CompressedKeyTableSmTest, ClassesThatCameAndWentThroughNotificationsWereNotMissed ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   tree.addClass( "p", "B" );
   tree.addClass( "p", "C" );
   tree.removeClass( "p", "A" );
   tree.removePolicy( "p" );
   EXPECT_THAT( known(), IsEmpty() );
   tree.addClass( "q", "A" );
   tree.removeClass( "q", "A" );
   tree.removePolicy( "q" );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_EQ( table->nextKey(), 4U );
}

TEST_F( CompressedKeyTableSmTest, ClassesThatChangeWhileTheScanIsYieldedWereNotMissed ) {
   for ( const char * name : { "A", "B", "C", "D" } ) { tree.addClass( "p", name ); }
   loop.alwaysYields();
   start( kAsynchronous );
   for ( int run = 0; loop.pending() != 0; ++run ) {
      tree.addClass( "p", "extra" + std::to_string( run ) );
      if ( run == 6 ) { break; }
      loop.runOne();
   }
   ASSERT_TRUE( sm->initialScanDone() );
   ASSERT_FALSE( sm->ready() );
   tree.removePolicy( "p" );
   EXPECT_THAT( known(), IsEmpty() );
   loop.runUntilIdle();
   EXPECT_TRUE( sm->ready() );
}

TEST_F( CompressedKeyTableSmTest, BeforeEventsCountNothingCanBeMissed ) {
   tree.addClass( "p", "A" );
   tree.addPolicy( "q" );
   loop.alwaysYields();
   start( kAsynchronous );
   ASSERT_FALSE( sm->initialScanDone() );
   const std::string scanned = policies()[0];
   child( scanned )->hasNotificationActiveIs( false );
   tree.addClass( scanned, "B" );
   tree.removePolicy( scanned );
   EXPECT_FALSE( child( scanned ) );
}

// Trace sinks that change the tree ----------------------------------------------------------------

TEST_F( CompressedKeyTableSmTest, APolicyMapMayGoWhileAChangeOfItsClassesIsBeingTraced ) {
   for ( const char * text : { "k: B", "input = from(" } ) {
      tree.addClass( "p", "A" );
      start( kSynchronous );
      {
         bool gone = false;
         const ActsOnTrace removes( text, [&] {
            if ( !std::exchange( gone, true ) ) { tree.removePolicy( "p" ); }
         } );
         tree.addClass( "p", "B" );
         EXPECT_EQ( removes.times, 1 ) << text;
      }
      EXPECT_FALSE( child( "p" ) ) << text;
   }
}

TEST_F( CompressedKeyTableSmTest, APolicyMapMayGoWhileItsClassIsBeingScanned ) {
   tree.addClass( "p", "A" );
   start( kAsynchronous );
   const ActsOnTrace removes( "k: A", [&] { tree.removePolicy( "p" ); } );
   loop.runUntilIdle();
   EXPECT_EQ( removes.times, 1 );
   EXPECT_TRUE( sm->ready() );
   EXPECT_FALSE( child( "p" ) );
   EXPECT_THAT( known(), IsEmpty() );
}

TEST_F( CompressedKeyTableSmTest, TheMachinesBelowMayBeLetGoWhileEverythingIsDeleted ) {
   for ( const char * name : { "A", "B", "C" } ) { tree.addClass( "p", name ); }
   start( kSynchronous );
   const ActsOnTrace letsGo( "input = from(", [&] { sm->rootSm3Del(); } );
   sm->doDeleteAll();
   EXPECT_EQ( letsGo.times, 1 );
   EXPECT_FALSE( sm->rootSm3() );
   EXPECT_THAT( known(), SizeIs( 2 ) );
}

// Outputs -----------------------------------------------------------------------------------------

TEST_F( CompressedKeyTableSmTest, TheShortKeyOutputIsReadyBeforeTheNextKeyOutput ) {
   Lumo::CapturingTraceSink traces;
   start( kAsynchronous );
   std::vector< short > published;
   using State = IlexCode::CompressedKeyTableSm::OutputState;
   const auto listening = Lumo::makeNode< ActsOnChange >(
      sm->outputState()->publisher(),
      [&]( short id, const void *, const void * ) { published.push_back( id ); } );
   loop.runUntilIdle();
   EXPECT_THAT( completed( traces ),
                ElementsAre( "Input scans for shortKeysShortKeyOutput complete",
                             "Input scans for shortKeysNextKeyOutput complete" ) );
   EXPECT_THAT( published,
                ElementsAre( State::kFirstOutput, State::kReady, State::kFirstOutput + 1 ) );
}

TEST_F( CompressedKeyTableSmTest, TheShortKeysArgumentMustNotBeNull ) {
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( compressedKeyTableSmFactory( tree.root, nullptr, {} ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().front().condition(),
              "shortKeys() && \"Pointer SM args cannot be null unless they are marked Optional\"" );
   EXPECT_THROW( compressedKeyTableSmFactory( nullptr, nullptr, {} ), Lumo::AssertionThrown );
   EXPECT_TRUE( assertions.failures().back().condition().starts_with( "root() &&" ) );
   EXPECT_DEATH(
      {
         Lumo::assertionHandlerIs( nullptr );
         compressedKeyTableSmFactory( nullptr, table, {} );
      },
      "Pointer SM args cannot be null unless they are marked Optional" );
}

TEST_F( CompressedKeyTableSmTest, NamesItsAttributesInOrder ) {
   start( kSynchronous );
   EXPECT_EQ( sm->typeData().typeName, "VeloSdkRpc::CompressedKeyTableSm" );
   EXPECT_THAT( sm->typeData().attributeNames,
                ElementsAre( "root", "shortKeys", "inputSmScanState", "outputState", "rootSm3",
                             "handleShortKeysShortKeyOutputInputReady",
                             "handleShortKeysNextKeyOutputInputReady", "doDeleteAll", "ilexControl",
                             "synchronous", "defaultSynchronous", "scheduler", "priority", "idle",
                             "ready", "initialScanDone", "handleInitialScanDone", "initialized",
                             "handleInitialized" ) );
}

TEST_F( CompressedKeyTableSmTest, ADirectEventFollowsTheSameRules ) {
   start( kSynchronous );
   const auto counters = Lumo::makeNode< CountersData >( "A" );
   sm->eventToInput( PolicyMapKey( "p" ), "A", Counters( counters ) );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
   sm->eventToInput( PolicyMapKey( "p" ), "A", Counters() );
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
}

} // namespace
} // namespace VeloSdkRpc::test
