#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/Loop.h"

namespace VeloSdkRpc::test {
namespace {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapKey;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// Hears every change of a backlog, and can be told to do something about it.
class Listener : public Lumo::Node {
 public:
   explicit Listener( const Lumo::Ptr< PbrCountersBacklog > & backlog ) {
      backlog->publisher()->subscriberAdd( slot_ );
   }

   std::vector< std::uint64_t > changed;
   std::function< void( std::uint64_t ) > react;

 private:
   void heard( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void * key,
               const void * ) {
      if ( attributeId != PbrCountersBacklog::kBacklog ) { return; }
      changed.push_back( *static_cast< const std::uint64_t * >( key ) );
      if ( react ) { react( changed.back() ); }
   }

   Lumo::MemberSubscriber< Listener, &Listener::heard > slot_{ this };
};

class BacklogTest : public testing::Test {
 protected:
   static PbrCounters::Data counters( std::uint64_t packets = 1 ) {
      return Lumo::makeNode< CountersData >( "c", CountData( packets, packets ) );
   }
   static PbrCountersKey longKey( std::uint64_t shortKey ) {
      return PbrCountersKey( PolicyMapKey( "p" ), std::to_string( shortKey ), {} );
   }
   static PbrCounters update( std::uint64_t shortKey, const PbrCounters::Data & data ) {
      return PbrCounters( shortKey, longKey( shortKey ), data, false );
   }
   static PbrCounters update( std::uint64_t shortKey ) { return update( shortKey, counters() ); }
   static PbrCounters deletion( std::uint64_t shortKey ) {
      return PbrCounters( shortKey, longKey( shortKey ), nullptr, true );
   }

   void file( std::initializer_list< std::uint64_t > shortKeys ) {
      for ( const std::uint64_t key : shortKeys ) { backlog->backlogIs( update( key ) ); }
   }
   /// All pending short keys in the collection's own order.
   std::vector< std::uint64_t > pending() const {
      std::vector< std::uint64_t > all;
      for ( const auto & entry : backlog->backlog() ) { all.push_back( entry.fwkKey() ); }
      return all;
   }
   void watch() { backlog->frontendIs( consumer ); }

   Loop loop;
   const Lumo::Ptr< PbrCountersKeyCompressionTable > table = PbrCountersKeyCompressionTableIs();
   Lumo::Ptr< PbrCountersBacklog > backlog = PbrCountersBacklogIs( table );
   const Lumo::Ptr< RecordingConsumer > consumer = Lumo::makeNode< RecordingConsumer >();
};

// Filing ------------------------------------------------------------------------------------------

TEST_F( BacklogTest, ANewBacklogWatchesNothingAndHoldsNothing ) {
   EXPECT_FALSE( backlog->watching() );
   EXPECT_TRUE( backlog->backlog().empty() );
   EXPECT_FALSE( backlog->bookmark() );
   EXPECT_EQ( backlog->shortKeys(), table );
}

TEST_F( BacklogTest, EqualRecordsOfOneKeyPublishOneChange ) {
   const auto listener = Lumo::makeNode< Listener >( backlog );
   const PbrCounters::Data data = counters();
   backlog->backlogIs( update( 7, data ) );
   backlog->backlogIs( update( 7, data ) );
   EXPECT_THAT( listener->changed, ElementsAre( 7 ) );
}

TEST_F( BacklogTest, RecordsWithDifferentDataPublishTwoChangesAndTheSecondIsKept ) {
   const auto listener = Lumo::makeNode< Listener >( backlog );
   const PbrCounters::Data first = counters(), second = counters();
   backlog->backlogIs( update( 7, first ) );
   backlog->backlogIs( update( 7, second ) );
   EXPECT_THAT( listener->changed, ElementsAre( 7, 7 ) );
   EXPECT_EQ( backlog->backlog()[std::uint64_t{ 7 }]->value().data(), second );
   EXPECT_THAT( pending(), SizeIs( 1 ) );
}

TEST_F( BacklogTest, FilingThePendingRecordItselfChangesNothing ) {
   file( { 7 } );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   backlog->backlogIs( backlog->backlog()[std::uint64_t{ 7 }]->value() );
   EXPECT_THAT( listener->changed, IsEmpty() );
}

TEST_F( BacklogTest, ADeletionReplacesAPendingUpdateAndAnUpdateAPendingDeletion ) {
   file( { 7 } );
   backlog->backlogIs( deletion( 7 ) );
   EXPECT_TRUE( backlog->backlog()[std::uint64_t{ 7 }]->value().deletedKey() );
   file( { 7 } );
   EXPECT_FALSE( backlog->backlog()[std::uint64_t{ 7 }]->value().deletedKey() );
   EXPECT_THAT( pending(), ElementsAre( 7 ) );
}

TEST_F( BacklogTest, DeletingAnEntryPublishesAndReturnsTheRecord ) {
   const PbrCounters record = update( 7 );
   backlog->backlogIs( record );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   EXPECT_EQ( backlog->backlogDel( 7 ), record );
   EXPECT_THAT( listener->changed, ElementsAre( 7 ) );
   EXPECT_TRUE( backlog->backlog().empty() );
}

TEST_F( BacklogTest, DeletingAnAbsentKeyReturnsAFalseRecordAndPublishesNothing ) {
   const auto listener = Lumo::makeNode< Listener >( backlog );
   EXPECT_FALSE( backlog->backlogDel( 7 ) );
   EXPECT_THAT( listener->changed, IsEmpty() );
}

TEST_F( BacklogTest, DeletingAllPublishesEveryRemovalWhenSomebodyListens ) {
   file( { 1, 2, 3 } );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   backlog->backlogDelAll();
   EXPECT_THAT( listener->changed, UnorderedElementsAre( 1, 2, 3 ) );
   EXPECT_TRUE( backlog->backlog().empty() );
}

TEST_F( BacklogTest, DeletingAllWithoutSubscribersEmptiesTheBacklogAtOnce ) {
   file( { 1, 2, 3 } );
   backlog->backlogDelAll();
   EXPECT_TRUE( backlog->backlog().empty() );
}

TEST_F( BacklogTest, AListenerMayFileAgainWhileAllIsDeleted ) {
   file( { 1, 2, 3 } );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   bool filedAgain = false;
   listener->react = [&]( std::uint64_t key ) {
      if ( !std::exchange( filedAgain, true ) ) { backlog->backlogIs( update( key ) ); }
   };
   backlog->backlogDelAll();
   EXPECT_THAT( listener->changed, SizeIs( 4 ) );
   EXPECT_THAT( pending(), ElementsAre( listener->changed.front() ) );
}

TEST_F( BacklogTest, AListenerMayDropTheBacklogWhileAllIsDeleted ) {
   file( { 1, 2, 3 } );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   listener->react = [this]( std::uint64_t ) { backlog = nullptr; };
   backlog.get()->backlogDelAll();
   EXPECT_THAT( listener->changed, UnorderedElementsAre( 1, 2, 3 ) );
}

TEST_F( BacklogTest, TheChangeOfARecordCarriesTheOldAndTheNewOne ) {
   const PbrCounters first = update( 7 ), second = update( 7 );
   backlog->backlogIs( first );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   bool seen = false;
   listener->react = [&]( std::uint64_t ) {
      const auto * change = backlog->publisher()->notification( PbrCountersBacklog::kBacklog );
      ASSERT_TRUE( change );
      EXPECT_EQ( *static_cast< const PbrCounters * >( change->oldValue ), first );
      EXPECT_EQ( *static_cast< const PbrCounters * >( change->newValue ), second );
      seen = true;
   };
   backlog->backlogIs( second );
   EXPECT_TRUE( seen );
}

// One record --------------------------------------------------------------------------------------

TEST_F( BacklogTest, TheFirstRecordOfANovelKeyCarriesEncodeLongKeyTheSecondDoesNot ) {
   watch();
   table->novelKeyIs( 7 );
   backlog->processItem( 7, update( 7 ) );
   backlog->processItem( 7, update( 7 ) );
   ASSERT_THAT( consumer->items, SizeIs( 2 ) );
   EXPECT_TRUE( consumer->items[0].encodeLongKey );
   EXPECT_FALSE( consumer->items[1].encodeLongKey );
}

TEST_F( BacklogTest, ADeletionOfAKnownKeyCarriesDeleteKeyOnly ) {
   watch();
   backlog->processItem( 7, deletion( 7 ) );
   ASSERT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_FALSE( consumer->items[0].encodeLongKey );
   EXPECT_TRUE( consumer->items[0].deleteKey );
}

TEST_F( BacklogTest, ADeletionOfANovelKeyIsNotDeliveredAndTheNoveltyIsGone ) {
   watch();
   table->novelKeyIs( 7 );
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   backlog->processItem( 7, deletion( 7 ) );
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_FALSE( table->isNovelKey( 7 ) );
   EXPECT_EQ( traces.count( 7, "coalesced a new key and a deleted key: ignoring" ), 1U );
}

TEST_F( BacklogTest, EveryRecordIsTracedWithItsFlagsAtLevelSeven ) {
   watch();
   table->novelKeyIs( 7 );
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   backlog->processItem( 7, update( 7 ) );
   EXPECT_EQ( traces.count( 7, "Processing short key 7 with flags "
                               "Value('VeloSdkRpc::PbrCountersEncodingFlags', ** "
                               "{'encodeLongKey': True, 'deleteKey': False})" ),
              1U );
}

TEST_F( BacklogTest, IfTheConsumerThrowsTheNoveltyIsThereAgain ) {
   watch();
   table->novelKeyIs( 7 );
   consumer->beforeItem = []( const auto &, auto ) { throw ConsumerBroke(); };
   EXPECT_THROW( backlog->processItem( 7, update( 7 ) ), ConsumerBroke );
   EXPECT_TRUE( table->isNovelKey( 7 ) );
   EXPECT_THROW( backlog->processItem( 8, update( 8 ) ), ConsumerBroke );
   EXPECT_FALSE( table->isNovelKey( 8 ) );
}

// Runs --------------------------------------------------------------------------------------------

class BacklogRunTest : public BacklogTest {
 protected:
   void run() { backlog->process( task ); }
   std::string progressOf( const Lumo::CapturingTraceSink & traces ) const {
      for ( const auto & message : traces.messages ) {
         if ( message.text.starts_with( "EnqueueMessages Progress " ) ) { return message.text; }
      }
      return {};
   }
   static std::string progress( bool yielded, unsigned pending, unsigned processed,
                                unsigned arrived, unsigned remaining, unsigned passes ) {
      return fmt::format( "EnqueueMessages Progress Value('QuonLumo::MiBacklogProgress', ** "
                          "{{'yielded': {}, 'pendingCount': {}, 'processedCount': {}, "
                          "'arrivedCount': {}, 'remainingCount': {}, 'passCount': {}}})",
                          yielded ? "True" : "False", pending, processed, arrived, remaining,
                          passes );
   }

   const Lumo::Ptr< Oru::Task > task =
      Lumo::makeNode< Oru::Task >( loop.scheduler(), Oru::TaskPriority{ 3 }, "drain" );
};

TEST_F( BacklogRunTest, WithoutAFrontendTheBacklogIsThrownAwaySilently ) {
   const auto listener = Lumo::makeNode< Listener >( backlog );
   file( { 1, 2 } );
   listener->changed.clear();
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_TRUE( backlog->backlog().empty() );
   EXPECT_THAT( listener->changed, IsEmpty() );
   EXPECT_EQ( traces.count( 8, "process" ), 1U );
   EXPECT_EQ( progressOf( traces ), "" );
   EXPECT_EQ( task->taskWorkCount(), 0U );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( BacklogRunTest, ARunOverNothingPushesOnceAndReportsNothing ) {
   watch();
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_EQ( consumer->pushes, 1 );
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_EQ( progressOf( traces ), progress( false, 0, 0, 0, 0, 1 ) );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( BacklogRunTest, ARunDeliversEverythingInTheCollectionsOrderThenPushesOnce ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3, 4, 5 } );
   const auto order = pending();
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_EQ( consumer->keys(), order );
   EXPECT_EQ( consumer->pushes, 1 );
   EXPECT_EQ( progressOf( traces ), progress( false, 0, 5, 0, 0, 2 ) );
   EXPECT_EQ( task->taskWorkCount(), 5U );
   EXPECT_EQ( task->taskWorkPending(), 0U );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( BacklogRunTest, ARunThatYieldsKeepsTheRestSetsTheBookmarkAndAsksForAnother ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3, 4, 5 } );
   const auto order = pending();
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0], order[1] ) );
   EXPECT_THAT( pending(), ElementsAre( order[2], order[3], order[4] ) );
   EXPECT_EQ( *backlog->bookmark(), order[2] );
   EXPECT_EQ( progressOf( traces ), progress( true, 3, 2, 0, 3, 0 ) );
   EXPECT_EQ( task->taskWorkCount(), 2U );
   EXPECT_EQ( task->taskWorkPending(), 3U );
   EXPECT_EQ( loop.pending(), 1U );
   EXPECT_EQ( consumer->pushes, 1 );
}

TEST_F( BacklogRunTest, TheNextRunGoesOnAtTheBookmarkAndWrapsRoundToTheEntriesBeforeIt ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3, 4, 5 } );
   const auto order = pending();
   run();
   file( { order[0] } );
   loop.endlessSlices();
   consumer->items.clear();
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[2], order[3], order[4], order[0] ) );
   EXPECT_FALSE( backlog->bookmark() );
   EXPECT_EQ( progressOf( traces ), progress( false, 0, 4, 0, 0, 3 ) );
}

TEST_F( BacklogRunTest, AYieldAfterWrappingRoundKeepsWhatIsLeftBeforeTheOldBookmark ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3, 4 } );
   const auto order = pending();
   run();
   file( { order[0], order[1] } );
   loop.yieldsAfter( 2 );
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0], order[1], order[2], order[3], order[0] ) );
   EXPECT_THAT( pending(), ElementsAre( order[1] ) );
   EXPECT_EQ( *backlog->bookmark(), order[1] );
}

TEST_F( BacklogRunTest, ABookmarkWhoseKeyIsGoneResumesAtTheNextKeyInOrder ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3, 4, 5 } );
   const auto order = pending();
   run();
   backlog->backlogDel( order[2] );
   file( { order[0] } );
   loop.endlessSlices();
   consumer->items.clear();
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[3], order[4], order[0] ) );
}

TEST_F( BacklogRunTest, ABookmarkBehindTheLastKeyStartsFromTheFirst ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3 } );
   const auto order = pending();
   run();
   backlog->backlogDel( order[2] );
   file( { order[0] } );
   loop.endlessSlices();
   consumer->items.clear();
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0] ) );
   EXPECT_FALSE( backlog->bookmark() );
}

TEST_F( BacklogRunTest, EverySliceDeliversAtLeastOneRecord ) {
   loop.alwaysYields();
   watch();
   file( { 1, 2, 3 } );
   run();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogRunTest, YieldIsAskedBeforeEveryRecordButTheFirstOfARun ) {
   class CountingPolicy final : public Oru::SlicePolicy {
    public:
      explicit CountingPolicy( int & asks ) : asks_( asks ) {}
      void sliceBegins() override {}
      std::uint32_t consult() override {
         ++asks_;
         return 1;
      }

    private:
      int & asks_;
   };
   int asks = 0;
   loop.scheduler()->slicePolicyIs( std::make_unique< CountingPolicy >( asks ) );
   watch();
   file( { 1, 2, 3, 4 } );
   run();
   EXPECT_EQ( asks, 3 );
   run();
   EXPECT_EQ( asks, 3 );
}

TEST_F( BacklogRunTest, WhatArrivesDuringARunWaitsForTheNextAndIsCounted ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3 } );
   consumer->beforeItem = [this]( const PbrCounters & c, auto ) {
      if ( c.shortKey() < 10 ) { file( { c.shortKey() + 10 } ); }
   };
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_THAT( consumer->items, SizeIs( 3 ) );
   EXPECT_THAT( pending(), UnorderedElementsAre( 11, 12, 13 ) );
   EXPECT_EQ( progressOf( traces ), progress( false, 3, 3, 3, 0, 1 ) );
   EXPECT_EQ( loop.pending(), 1U );
}

TEST_F( BacklogRunTest, AnArrivalWinsOverTheUnprocessedRecordOfTheSameKey ) {
   loop.yieldsAfter( 0 );
   watch();
   file( { 1, 2 } );
   const auto order = pending();
   const PbrCounters newer = update( order[1] );
   consumer->beforeItem = [&]( const auto &, auto ) { backlog->backlogIs( newer ); };
   const auto listener = Lumo::makeNode< Listener >( backlog );
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_THAT( pending(), ElementsAre( order[1] ) );
   EXPECT_EQ( backlog->backlog()[order[1]]->value(), newer );
   EXPECT_EQ( progressOf( traces ), progress( true, 1, 1, 1, 1, 0 ) );
   EXPECT_THAT( listener->changed, ElementsAre( order[1] ) ); // The merge publishes nothing.
}

TEST_F( BacklogRunTest, TenUpdatesOfOneKeyArriveOnceWithTheLastValue ) {
   watch();
   PbrCounters last;
   for ( int n = 1; n <= 10; ++n ) { backlog->backlogIs( last = update( 7 ) ); }
   run();
   ASSERT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_EQ( consumer->items[0].record, last );
}

TEST_F( BacklogRunTest, WithoutATaskARunGoesToTheEnd ) {
   watch();
   file( { 1, 2, 3 } );
   backlog->process( nullptr );
   EXPECT_THAT( consumer->items, SizeIs( 3 ) );
}

TEST_F( BacklogRunTest, StoringARecordUnderAnotherKeyIsFatal ) {
   const Lumo::ThrowingAssertionHandler assertions;
   PbrCountersBacklog::Backlog collection;
   try {
      collection.memberIs( 8, update( 7 ) );
      FAIL() << "stored";
   } catch ( const Lumo::AssertionThrown & thrown ) {
      EXPECT_EQ( thrown.condition(), "fwkKey() == KeyFunktor()( _value )" );
   }
}

// Consumers that misbehave ------------------------------------------------------------------------

TEST_F( BacklogRunTest, WhenTheConsumerThrowsNothingIsLostAndTheRunIsAskedForAgain ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3, 4 } );
   for ( std::uint64_t key = 1; key <= 4; ++key ) { table->novelKeyIs( key ); }
   const auto order = pending();
   consumer->beforeItem = [&]( const PbrCounters & c, auto ) {
      if ( c.shortKey() == order[2] ) { throw ConsumerBroke(); }
   };
   EXPECT_THROW( run(), ConsumerBroke );
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0], order[1] ) );
   EXPECT_THAT( pending(), ElementsAre( order[2], order[3] ) );
   EXPECT_EQ( table->novelKey().size(), 2U );
   EXPECT_EQ( *backlog->bookmark(), order[3] ); // Others do not wait for a record that breaks.
   EXPECT_EQ( loop.pending(), 1U );
   EXPECT_EQ( consumer->pushes, 0 );
   consumer->beforeItem = nullptr;
   run();
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0], order[1], order[3], order[2] ) );
   EXPECT_TRUE( consumer->items.back().encodeLongKey );
}

TEST_F( BacklogRunTest, ARecordFiledByAConsumerThatThenThrowsWinsOverTheOneInHand ) {
   loop.endlessSlices();
   watch();
   file( { 1 } );
   const PbrCounters newer = deletion( 1 );
   consumer->beforeItem = [&]( const auto &, auto ) {
      backlog->backlogIs( newer );
      throw ConsumerBroke();
   };
   EXPECT_THROW( run(), ConsumerBroke );
   EXPECT_EQ( backlog->backlog()[std::uint64_t{ 1 }]->value(), newer );
}

TEST_F( BacklogRunTest, AConsumerThatThrowsInPushLeavesEverythingAccountedFor ) {
   loop.yieldsAfter( 0 );
   watch();
   file( { 1, 2 } );
   consumer->onPush = [] { throw ConsumerBroke(); };
   EXPECT_THROW( run(), ConsumerBroke );
   EXPECT_THAT( pending(), SizeIs( 1 ) );
   EXPECT_EQ( task->taskWorkPending(), 1U );
   EXPECT_EQ( loop.pending(), 1U );
}

TEST_F( BacklogRunTest, AConsumerThatReplacesItselfLeavesTheRestToTheNewOne ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3 } );
   const auto successor = Lumo::makeNode< RecordingConsumer >();
   consumer->beforeItem = [&]( const auto &, auto ) { backlog->frontendIs( successor ); };
   run();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_THAT( successor->items, SizeIs( 2 ) );
   EXPECT_EQ( successor->pushes, 1 );
}

TEST_F( BacklogRunTest, AConsumerTakenAwayDuringARunLeavesTheRestToNobody ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3 } );
   consumer->beforeItem = [this]( const auto &, auto ) { backlog->frontendIs( nullptr ); };
   run();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   EXPECT_EQ( consumer->pushes, 0 );
   EXPECT_TRUE( backlog->backlog().empty() );
}

TEST_F( BacklogRunTest, WatchingWithTheSameConsumerAgainKeepsIt ) {
   watch();
   backlog->frontendIs( backlog->frontend() );
   EXPECT_EQ( backlog->frontend(), consumer );
}

TEST_F( BacklogRunTest, AConsumerMayDropTheBacklogTheTaskAndItself ) {
   class Suicidal final : public PbrCountersFrontend {
    public:
      explicit Suicidal( std::function< void() > dropAll ) : dropAll_( std::move( dropAll ) ) {}
      void appendItem( const PbrCounters &, PbrCountersEncodingFlags ) override { dropAll_(); }
      void push() override {}

    private:
      const std::function< void() > dropAll_;
   };
   loop.endlessSlices();
   Lumo::Ptr< Oru::Task > held =
      Lumo::makeNode< Oru::Task >( loop.scheduler(), Oru::TaskPriority{ 3 }, "drain" );
   int calls = 0;
   backlog->frontendIs( Lumo::makeNode< Suicidal >( [&] {
      ++calls;
      backlog = nullptr;
      held = nullptr;
   } ) );
   file( { 1, 2, 3 } );
   PbrCountersBacklog & running = *backlog;
   running.process( held );
   EXPECT_EQ( calls, 3 );
}

TEST_F( BacklogRunTest, AConsumerMayDrainFromInsideADelivery ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2 } );
   bool nested = false;
   consumer->beforeItem = [&]( const auto &, auto ) {
      if ( std::exchange( nested, true ) ) { return; }
      file( { 10 } );
      run();
   };
   run();
   EXPECT_THAT( consumer->keys(), UnorderedElementsAre( 1, 2, 10 ) );
   EXPECT_TRUE( backlog->backlog().empty() );
}

// The task ----------------------------------------------------------------------------------------

class BacklogTaskTest : public BacklogTest {
 protected:
   Lumo::Ptr< PbrCountersBacklogTask > binding = PbrCountersBacklogTaskIs( "stream", backlog );
};

TEST_F( BacklogTaskTest, ItIsInitializedListensAndHasAskedForARun ) {
   EXPECT_TRUE( binding->initialized() );
   EXPECT_TRUE( binding->hasNotificationActive() );
   EXPECT_EQ( binding->pbrCountersBacklogPtr(), backlog );
   EXPECT_EQ( binding->task()->taskName(), "stream" );
   EXPECT_EQ( binding->task()->taskPriority(), 3 );
   EXPECT_EQ( binding->task()->taskScheduler(), loop.scheduler() );
   EXPECT_EQ( loop.pending(), 1U );
}

TEST_F( BacklogTaskTest, AChangeOfTheBacklogAsksForARunWhichDelivers ) {
   loop.runUntilIdle();
   watch();
   EXPECT_EQ( loop.pending(), 0U ); // Another attribute.
   file( { 1, 2 } );
   EXPECT_EQ( loop.pending(), 1U );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), UnorderedElementsAre( 1, 2 ) );
}

TEST_F( BacklogTaskTest, UntilInitializedRunsDoNothing ) {
   const auto idle = Lumo::makeNode< PbrCountersBacklogTask >( "idle", backlog );
   binding = nullptr;
   watch();
   file( { 1 } );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_EQ( consumer->pushes, 0 );
   idle->handleInitialized();
   idle->onTask();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogTaskTest, ATaskWithTheSameSchedulerAndNameIsKeptAndOnlyItsPriorityChanges ) {
   watch();
   const Lumo::Ptr< Oru::Task > before = binding->task();
   EXPECT_EQ( binding->taskIs( loop.scheduler(), 5, "stream" ), before );
   EXPECT_EQ( before->taskPriority(), 5 );
   EXPECT_EQ( consumer->pushes, 0 );
}

TEST_F( BacklogTaskTest, AnotherNameMakesANewTaskAndRunsAtOnce ) {
   watch();
   const Lumo::Ptr< Oru::Task > before = binding->task();
   const Lumo::Ptr< Oru::Task > now = binding->taskIs( loop.scheduler(), 3, "other" );
   EXPECT_NE( now, before );
   EXPECT_EQ( binding->task(), now );
   EXPECT_EQ( consumer->pushes, 1 );
   before->scheduleTask();
   loop.runUntilIdle();
   EXPECT_EQ( consumer->pushes, 1 ); // The old one is not listened to any more.
   now->scheduleTask();
   loop.runUntilIdle();
   EXPECT_EQ( consumer->pushes, 2 );
}

TEST_F( BacklogTaskTest, ANewTaskMayTakeItsPropertiesFromTheOldOne ) {
   const Lumo::Ptr< Oru::TaskScheduler > scheduler = loop.scheduler();
   binding->taskIs( binding->task()->taskScheduler(), 3, "other" );
   EXPECT_EQ( binding->task()->taskScheduler(), scheduler );
   binding->taskIs( Lumo::makeNode< Oru::TaskScheduler >(), 3, binding->task()->taskName() );
   EXPECT_EQ( binding->task()->taskName(), "other" );
}

TEST_F( BacklogTaskTest, RemovingTheTaskReturnsItAndChangesThenAskForNothing ) {
   const Lumo::Ptr< Oru::Task > before = binding->task();
   EXPECT_EQ( binding->taskDel(), before );
   EXPECT_EQ( binding->taskDel(), nullptr );
   loop.runUntilIdle();
   watch();
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( BacklogTaskTest, WithNotificationsOffNeitherChangesNorRunsAreHeard ) {
   loop.runUntilIdle();
   watch();
   binding->hasNotificationActiveIs( false );
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 0U );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   binding->hasNotificationActiveIs( true );
   binding->hasNotificationActiveIs( true );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogTaskTest, DroppedFromInsideItsOwnRunItBreaksNothing ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      binding = nullptr;
      backlog = nullptr;
   };
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 2 ) );
}

TEST_F( BacklogTaskTest, SlicesFollowOneAnotherUntilAllIsDelivered ) {
   loop.yieldsAfter( 2 );
   loop.runUntilIdle();
   watch();
   for ( std::uint64_t key = 1; key <= 10; ++key ) { file( { key } ); }
   EXPECT_EQ( loop.runUntilIdle(), 4U );
   EXPECT_THAT( consumer->items, SizeIs( 10 ) );
   EXPECT_EQ( consumer->pushes, 4 );
}

} // namespace
} // namespace VeloSdkRpc::test
