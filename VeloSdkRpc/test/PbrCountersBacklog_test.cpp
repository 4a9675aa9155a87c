#include "VeloSdkRpc/test/BacklogTest.h"

/// How records are filed, and how one is handed over.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

// Filing ------------------------------------------------------------------------------------------

TEST_F( BacklogTest, ANewBacklogWatchesNothingAndHoldsNothing ) {
   EXPECT_FALSE( backlog->watching() );
   EXPECT_TRUE( backlog->backlog().empty() );
   EXPECT_FALSE( backlog->bookmark() );
   EXPECT_EQ( backlog->shortKeys(), table );
}

TEST_F( BacklogTest, ItNamesItsAttributesInOrder ) {
   EXPECT_EQ( backlog->typeData().typeName, "VeloSdkRpc::PbrCountersBacklog" );
   EXPECT_THAT( backlog->typeData().attributeNames,
                ElementsAre( "shortKeys", "frontend", "backlog", "bookmark" ) );
}

TEST_F( BacklogTest, BothFactoriesBindItToTheTable ) {
   for ( const auto factory : { &pbrCountersBacklogFactory, &PbrCountersBacklogIs } ) {
      const auto made = factory( table );
      EXPECT_EQ( made->shortKeys(), table );
      EXPECT_EQ( made->references(), 1U );
   }
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

TEST_F( BacklogTest, ItIsTheShortKeyOfTheRecordThatIsNovelAgain ) {
   watch();
   table->novelKeyIs( 7 );
   consumer->beforeItem = []( const auto &, auto ) { throw ConsumerBroke(); };
   EXPECT_THROW( backlog->processItem( 8, update( 7 ) ), ConsumerBroke );
   EXPECT_TRUE( table->isNovelKey( 7 ) );
   EXPECT_FALSE( table->isNovelKey( 8 ) );
}

TEST_F( BacklogTest, IfEverythingWasFiledAnewBeforeTheConsumerThrewNothingIsNovelAgain ) {
   watch();
   table->novelKeyIs( 7 );
   consumer->beforeItem = [this]( const auto &, auto ) {
      backlog->allFiledAnew();
      throw ConsumerBroke();
   };
   EXPECT_THROW( backlog->processItem( 7, update( 7 ) ), ConsumerBroke );
   EXPECT_FALSE( table->isNovelKey( 7 ) );
}

TEST_F( BacklogTest, WithoutAConsumerARecordIsTracedAndItsKeyStaysNovel ) {
   table->novelKeyIs( 7 );
   table->novelKeyIs( 8 );
   const Lumo::CapturingTraceSink traces( "PbrCountersBacklog" );
   backlog->processItem( 7, update( 7 ) );
   backlog->processItem( 8, deletion( 8 ) );
   backlog->processItem( 9, update( 9 ) );
   EXPECT_TRUE( table->isNovelKey( 7 ) );
   EXPECT_FALSE( table->isNovelKey( 8 ) ); // It has gone before anybody knew it.
   EXPECT_FALSE( table->isNovelKey( 9 ) );
   EXPECT_EQ( traces.count( 7, "coalesced a new key and a deleted key: ignoring" ), 1U );
   EXPECT_THAT( traces.messages, SizeIs( 4 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
