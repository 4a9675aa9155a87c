#include "VeloSdkRpc/test/BacklogTest.h"

#include <sstream>
#include <stdexcept>

/// Draining runs, with consumers that behave and others.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class BacklogRunTest : public BacklogTest {
 protected:
   void run() { backlog->process( task ); }
   /// The third of `order` goes, the first comes again; then a run to the end, heard on its own.
   void goesOnWithoutTheThird( const std::vector< std::uint64_t > & order ) {
      backlog->backlogDel( order[2] );
      file( { order[0] } );
      loop.endlessSlices();
      consumer->items.clear();
      run();
   }
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

TEST_F( BacklogRunTest, TheProgressIsPrintedAsItIsTraced ) {
   std::ostringstream os;
   os << "EnqueueMessages Progress " << QuonLumo::MiBacklogProgress{ true, 1, 2, 3, 4, 5 };
   EXPECT_EQ( os.str(), progress( true, 1, 2, 3, 4, 5 ) );
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
   goesOnWithoutTheThird( order );
   EXPECT_THAT( consumer->keys(), ElementsAre( order[3], order[4], order[0] ) );
}

TEST_F( BacklogRunTest, ABookmarkBehindTheLastKeyStartsFromTheFirst ) {
   loop.yieldsAfter( 1 );
   watch();
   file( { 1, 2, 3 } );
   const auto order = pending();
   run();
   goesOnWithoutTheThird( order );
   EXPECT_THAT( consumer->keys(), ElementsAre( order[0] ) );
   EXPECT_FALSE( backlog->bookmark() );
}

/// Throws whatever it is to write down.
class BrokenSink final : public Lumo::TraceSink {
 public:
   BrokenSink() { Lumo::traceLevelsIs( "PbrCountersBacklog", Lumo::traceLevels( 7 ) ); }
   ~BrokenSink() override { Lumo::traceSinkIs( before_ ); }
   BrokenSink( const BrokenSink & ) = delete;
   BrokenSink & operator=( const BrokenSink & ) = delete;

   void emit( const Lumo::TraceRecord & ) override { throw std::runtime_error( "no space left" ); }

 private:
   const Lumo::TraceLevelsScope levelsBefore_;
   Lumo::TraceSink * const before_ = Lumo::traceSinkIs( this );
};

TEST_F( BacklogRunTest, ATraceSinkThatThrowsLosesNeitherTheRecordNorItsNovelty ) {
   watch();
   table->novelKeyIs( 7 );
   file( { 7 } );
   {
      const BrokenSink sink;
      EXPECT_THROW( run(), std::runtime_error );
   }
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_THAT( pending(), ElementsAre( 7 ) );
   EXPECT_TRUE( table->novelKey()[7] );
}

TEST_F( BacklogRunTest, EverySliceDeliversAtLeastOneRecord ) {
   loop.alwaysYields();
   watch();
   file( { 1, 2, 3 } );
   run();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogRunTest, YieldIsAskedBeforeEveryRecordButTheFirstOfARun ) {
   int asks = 0;
   loop.countsAsks( asks );
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

TEST_F( BacklogRunTest, AnArrivalThatIsWithdrawnAgainHasArrivedNonetheless ) {
   watch();
   file( { 1 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      file( { 2 } );
      backlog->backlogDel( 2 );
   };
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   run();
   EXPECT_EQ( progressOf( traces ), progress( false, 0, 1, 0, 0, 1 ) );
}

TEST_F( BacklogRunTest, TheLoopDrainsAnyCollectionGivenAYieldTestAndAnAction ) {
   PbrCountersBacklog::Backlog collection;
   for ( const std::uint64_t key : { 1, 2, 3 } ) { collection.memberIs( key, update( key ) ); }
   Quon::Optional< std::uint64_t > bookmark;
   std::vector< std::uint64_t > drained;
   const auto drain = [&]( bool yields ) {
      return QuonLumo::Impl::_processBacklog(
         collection, bookmark, [&] { return yields; },
         [&]( std::uint64_t key, const PbrCounters & ) { drained.push_back( key ); } );
   };
   EXPECT_EQ( drain( true ).remainingCount, 2U );
   EXPECT_EQ( *bookmark, 2U );
   EXPECT_EQ( drain( false ).processedCount, 2U );
   EXPECT_THAT( drained, ElementsAre( 1, 2, 3 ) );
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

} // namespace
} // namespace VeloSdkRpc::test
