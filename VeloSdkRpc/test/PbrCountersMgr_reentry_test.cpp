// What consumers may do to the manager while they are being told, and how it ends.

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "VeloSdkRpc/test/MgrFixture.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Consumers ---------------------------------------------------------------------------------------

class PbrCountersMgrReentryTest : public MgrFixture {
 protected:
   PbrCountersMgrReentryTest() {
      for ( const char * name : { "web", "voice", "bulk" } ) { tree.addClass( "edge", name, 1 ); }
      mount();
      loop.endlessSlices();
      mgr().startWatching( consumer );
   }

   /// Only the first record of all causes it.
   void atFirstRecord( std::function< void( const PbrCounters & ) > act ) {
      consumer->beforeItem = [this, act]( const PbrCounters & record, auto ) {
         if ( !std::exchange( acted_, true ) ) { act( record ); }
      };
   }
   static std::string className( const PbrCounters & record ) {
      return std::string( record.longKey().name().view() );
   }
   /// Some class that is not `name`.
   static std::string otherThan( const std::string & name ) {
      return name == "web" ? "voice" : "web";
   }

   const Lumo::Ptr< RecordingConsumer > consumer = newRecorder();

 private:
   bool acted_ = false;
};

TEST_F( PbrCountersMgrReentryTest, DestroyedFromInsideADeliveryItBreaksNothing ) {
   atFirstRecord( [this]( const auto & ) { destroyMgr(); } );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 3 ) ); // The run still had them in hand.
   EXPECT_EQ( loop.pending(), 0U );
   EXPECT_EQ( consumer->references(), 1U );
}

TEST_F( PbrCountersMgrReentryTest, DestroyedFromInsideADeliveryOfASliceItBreaksNothing ) {
   loop.yieldsAfter( 0 );
   atFirstRecord( [this]( const auto & ) { destroyMgr(); } );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_EQ( loop.pending(), 0U );
   EXPECT_EQ( consumer->references(), 1U );
}

TEST_F( PbrCountersMgrReentryTest, DestroyedFromInsideAPushItBreaksNothing ) {
   consumer->onPush = [this] { destroyMgr(); };
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 3 ) );
   EXPECT_EQ( consumer->pushes, 1 );
   EXPECT_EQ( consumer->references(), 1U );
}

TEST_F( PbrCountersMgrReentryTest, DestroyedByAReplacedConsumersEndItBreaksNothing ) {
   class LastStraw final : public ReconstructingConsumer {
    public:
      explicit LastStraw( std::function< void() > act ) : act_( std::move( act ) ) {}
      ~LastStraw() override { act_(); }

    private:
      const std::function< void() > act_;
   };
   mgr().startWatching( Lumo::makeNode< LastStraw >( [this] { destroyMgr(); } ) );
   mgr().startWatching( consumer );
   EXPECT_EQ( loop.runUntilIdle(), 0U );
   EXPECT_EQ( consumer->references(), 1U );
}

TEST_F( PbrCountersMgrReentryTest, AConsumerThatStopsWatchingIsServedToTheEnd ) {
   atFirstRecord( [this]( const auto & ) { mgr().stopWatching(); } );
   loop.runUntilIdle();
   EXPECT_TRUE( idle() );
   EXPECT_THAT( consumer->items, SizeIs( 3 ) );
   EXPECT_EQ( consumer->pushes, 1 );
   tree.count( "edge", "web", 2 );
   EXPECT_EQ( loop.runUntilIdle(), 0U );
}

TEST_F( PbrCountersMgrReentryTest, AConsumerThatStopsInAPushIsToldNothingMore ) {
   consumer->onPush = [this] { mgr().stopWatching(); };
   loop.runUntilIdle();
   EXPECT_TRUE( idle() );
   tree.count( "edge", "web", 2 );
   EXPECT_EQ( loop.runUntilIdle(), 0U );
   EXPECT_THAT( consumer->items, SizeIs( 3 ) );
}

TEST_F( PbrCountersMgrReentryTest, AConsumerThatReplacesItselfLeavesTheRestToItsSuccessor ) {
   const auto successor = newRecorder();
   atFirstRecord( [&]( const auto & ) { mgr().startWatching( successor ); } );
   loop.runUntilIdle();
   EXPECT_TRUE( streaming() );
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_THAT( successor->items, SizeIs( 2 ) );
   EXPECT_EQ( consumer->pushes, 0 );
   EXPECT_EQ( successor->pushes, 1 );
}

TEST_F( PbrCountersMgrReentryTest, AStreamStartedAnewFromInsideADeliveryTellsEverythingOnce ) {
   const auto successor = newRecorder();
   atFirstRecord( [&]( const auto & ) {
      mgr().stopWatching();
      mgr().startWatching( successor );
   } );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_THAT( successor->keys(), testing::UnorderedElementsAre( 1, 2, 3 ) );
}

TEST_F( PbrCountersMgrReentryTest,
        AStreamStartedAnewFromInsideADeliveryKnowsNothingOfWhatHasGone ) {
   const auto successor = newConsumer();
   atFirstRecord( [&]( const PbrCounters & record ) {
      mgr().stopWatching();
      tree.removeClass( "edge", otherThan( className( record ) ) ); // The run has it in hand.
      mgr().startWatching( successor );
   } );
   loop.runUntilIdle();
   EXPECT_EQ( successor->contents().size(), 2U );
   EXPECT_EQ( successor->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrReentryTest, AStreamStartedAnewByAConsumerThatThenThrowsKnowsTheTree ) {
   const auto successor = newConsumer();
   atFirstRecord( [&]( const PbrCounters & record ) {
      mgr().stopWatching();
      tree.removeClass( "edge", className( record ) );
      mgr().startWatching( successor );
      throw ConsumerBroke();
   } );
   EXPECT_THROW( loop.runUntilIdle(), ConsumerBroke );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_EQ( successor->contents().size(), 2U );
   EXPECT_EQ( successor->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrReentryTest, AConsumerThatBreaksIsToldAgainWhatItHasMissed ) {
   tree.addClass( "edge", "new", 1 );
   consumer->beforeItem = [this]( const PbrCounters & record, auto ) {
      if ( className( record ) == "new" ) {
         consumer->beforeItem = nullptr;
         throw ConsumerBroke();
      }
   };
   EXPECT_THROW( loop.runUntilIdle(), ConsumerBroke );
   EXPECT_EQ( novel(), 1U );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), testing::UnorderedElementsAre( 1, 2, 3, 4 ) );
   for ( const auto & item : consumer->items ) {
      EXPECT_EQ( item.encodeLongKey, item.shortKey == 4 );
   }
}

TEST_F( PbrCountersMgrReentryTest, WhatAConsumerChangesInTheTreeIsToldInTheNextRun ) {
   atFirstRecord( [this]( const PbrCounters & record ) {
      tree.removeClass( "edge", className( record ) );
      tree.addClass( "edge", className( record ), 5 );
   } );
   loop.runOne();
   EXPECT_THAT( consumer->keys(), testing::UnorderedElementsAre( 1, 2, 3 ) );
   const std::uint64_t first = consumer->items[0].shortKey;
   consumer->items.clear();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), testing::UnorderedElementsAre( first, 4 ) );
   for ( const auto & item : consumer->items ) { EXPECT_EQ( item.deleteKey, item.shortKey != 4 ); }
}

TEST_F( PbrCountersMgrReentryTest, AListenerThatStopsWhileStreamingBeginsLeavesItIdle ) {
   mgr().stopWatching();
   loop.runUntilIdle();
   const auto listener = Lumo::makeNode< BacklogListener >(
      mgr().backlog(), [this]( short ) { mgr().stopWatching(); } );
   mgr().startWatching( consumer );
   EXPECT_TRUE( idle() );
}

TEST_F( PbrCountersMgrReentryTest,
        AListenerThatBreaksWhileStreamingBeginsLeavesItIdleWithTheConsumerFromBefore ) {
   mgr().stopWatching();
   loop.runUntilIdle();
   const auto successor = newConsumer();
   {
      const auto listener = Lumo::makeNode< BacklogListener >(
         mgr().backlog(), []( short ) { throw ConsumerBroke(); } );
      EXPECT_THROW( mgr().startWatching( successor ), ConsumerBroke );
   }
   EXPECT_TRUE( idle() );
   EXPECT_EQ( mgr().backlog()->frontend().get(), consumer.get() );
   tree.addClass( "edge", "new" );
   EXPECT_NE( shortKey( "edge", "new" ), 0U );
   mgr().startWatching( successor );
   EXPECT_TRUE( streaming() );
   loop.runUntilIdle();
   EXPECT_EQ( successor->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrReentryTest, AMachineThatSomebodyHoldsHearsNothingOnceItsTimeIsOver ) {
   const auto first = mgr().pbrCountersBacklogSm();
   mgr().stopWatching();
   EXPECT_FALSE( first->hasNotificationActive() );
   const auto idling = mgr().compressedKeyTableSm();
   mgr().startWatching( consumer );
   EXPECT_FALSE( idling->hasNotificationActive() );
   const auto streamed = mgr().pbrCountersBacklogSm();
   const auto backlog = mgr().backlog();
   loop.runUntilIdle();
   destroyMgr();
   tree.count( "edge", "web", 2 );
   tree.addClass( "edge", "new" );
   EXPECT_FALSE( streamed->hasNotificationActive() );
   EXPECT_THAT( backlog->backlog(), SizeIs( 0 ) );
}

TEST_F( PbrCountersMgrReentryTest, AMachineThatSomebodyHoldsHearsNothingOnceAnIdleManagerIsGone ) {
   mgr().stopWatching();
   const auto idled = mgr().compressedKeyTableSm();
   const auto table = mgr().shortKeys();
   const std::uint64_t keys = table->nextKey();
   destroyMgr();
   tree.addClass( "edge", "new" );
   EXPECT_FALSE( idled->hasNotificationActive() );
   EXPECT_EQ( table->nextKey(), keys );
}

TEST_F( PbrCountersMgrReentryTest, AMachineThatIsOnlyFinishingAnEventHearsNothingNew ) {
   loop.runUntilIdle();
   const Lumo::CapturingTraceSink traces; // The short way of an event does not hold the machine.
   const Witness machine( mgr().pbrCountersBacklogSm()->publisher() );
   const auto listener =
      Lumo::makeNode< BacklogListener >( mgr().backlog(), [&, done = false]( short ) mutable {
         if ( std::exchange( done, true ) ) { return; }
         mgr().stopWatching();
         tree.addClass( "edge", "new" );
         tree.addClass( "core", "new" );
         tree.count( "edge", "voice", 2 );
         EXPECT_TRUE( machine.sees() );
      } );
   tree.count( "edge", "web", 2 );
   EXPECT_FALSE( machine.sees() );
   EXPECT_TRUE( idle() );
   EXPECT_NE( shortKey( "edge", "new" ), 0U );
   EXPECT_NE( shortKey( "core", "new" ), 0U );
   EXPECT_EQ( novel(), 0U );
   EXPECT_EQ( pending(), 1U ); // The event that was in progress.
   EXPECT_TRUE( mgr().backlog()->backlog()[shortKey( "edge", "web" )] );
}

TEST_F( PbrCountersMgrReentryTest, DestroyedFromInsideAnEventItsMachineHearsNothingNew ) {
   loop.runUntilIdle();
   const Lumo::Ptr< PbrCountersBacklog > backlog = mgr().backlog();
   const Lumo::CapturingTraceSink traces; // The short way of an event does not hold the machine.
   const Witness machine( mgr().pbrCountersBacklogSm()->publisher() );
   const auto listener =
      Lumo::makeNode< BacklogListener >( backlog, [&, done = false]( short ) mutable {
         if ( std::exchange( done, true ) ) { return; }
         destroyMgr();
         tree.count( "edge", "voice", 2 );
         EXPECT_TRUE( machine.sees() );
      } );
   tree.count( "edge", "web", 2 );
   EXPECT_THAT( backlog->backlog(), SizeIs( 1 ) );
}

TEST_F( PbrCountersMgrReentryTest, AConsumerThatStartsAnewAndThrowsBringsBackNoNovelty ) {
   loop.runUntilIdle();
   const auto successor = newConsumer();
   tree.addClass( "edge", "new" );
   consumer->items.clear();
   atFirstRecord( [&]( const auto & ) {
      mgr().stopWatching();
      mgr().startWatching( successor );
      throw ConsumerBroke();
   } );
   EXPECT_THROW( loop.runUntilIdle(), ConsumerBroke );
   EXPECT_EQ( novel(), 0U );
   loop.runUntilIdle();
   EXPECT_EQ( successor->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrReentryTest, AListenerThatStopsWhileAPolicyMapGoesLeavesTheTableInStep ) {
   loop.runUntilIdle();
   const auto listener = Lumo::makeNode< BacklogListener >(
      mgr().backlog(), [this]( short ) { mgr().stopWatching(); } );
   tree.removePolicy( "edge" );
   EXPECT_TRUE( idle() );
   EXPECT_TRUE( mgr().shortKeys()->shortKey().empty() );
}

// The end -----------------------------------------------------------------------------------------

class PbrCountersMgrEndTest : public MgrFixture {};

/// Tells of its own end.
class LastWords final : public ReconstructingConsumer {
 public:
   explicit LastWords( std::function< void() > speak ) : speak_( std::move( speak ) ) {}
   ~LastWords() override { speak_(); }

 private:
   const std::function< void() > speak_;
};

TEST_F( PbrCountersMgrEndTest, WhileStreamingTaskAndMachineGoBeforeTheBacklogAndTheStatusLast ) {
   auto status = Lumo::makeNode< PolicyMapTypeCounters >();
   shared->entityIs( kPath, status );
   mount();
   shared->entityIs( kPath, nullptr );
   const Witness root( std::exchange( status, nullptr )->publisher() );
   std::vector< bool > seen;
   Witness *task = nullptr, *machine = nullptr;
   mgr().startWatching( Lumo::makeNode< LastWords >(
      [&] { seen = { task->sees(), machine->sees(), root.sees() }; } ) );
   Witness taskWitness( mgr().backlogTask()->task()->publisher() );
   Witness machineWitness( mgr().pbrCountersBacklogSm()->publisher() );
   task = &taskWitness;
   machine = &machineWitness;
   destroyMgr(); // The consumer goes with the backlog.
   EXPECT_THAT( seen, ElementsAre( false, false, true ) );
   EXPECT_FALSE( root.sees() );
}

TEST_F( PbrCountersMgrEndTest, WhileIdleTheBacklogGoesBeforeTheMachine ) {
   mount();
   Witness * machine = nullptr;
   std::vector< bool > seen;
   mgr().startWatching( Lumo::makeNode< LastWords >( [&] { seen = { machine->sees() }; } ) );
   mgr().stopWatching();
   Witness machineWitness( mgr().compressedKeyTableSm()->publisher() );
   machine = &machineWitness;
   destroyMgr();
   EXPECT_THAT( seen, ElementsAre( true ) );
   EXPECT_FALSE( machineWitness.sees() );
}

TEST_F( PbrCountersMgrEndTest, DestroyedBeforeTheMountsItIsNotCalledForThem ) {
   destroyMgr();
   const auto references = tree.root->references();
   EXPECT_NO_THROW( mount() );
   EXPECT_EQ( tree.root->references(), references );
}

TEST_F( PbrCountersMgrEndTest, DestroyedItFollowsNothingAndDeliversNothing ) {
   const auto consumer = newRecorder();
   tree.addClass( "edge", "web" );
   mount();
   mgr().startWatching( consumer );
   destroyMgr();
   tree.addClass( "edge", "voice" );
   EXPECT_EQ( loop.runUntilIdle(), 0U );
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_EQ( consumer->pushes, 0 );
}

} // namespace
} // namespace VeloSdkRpc::test
