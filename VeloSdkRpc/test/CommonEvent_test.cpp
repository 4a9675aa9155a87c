#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BacklogMachineTest.h"
#include "VeloSdkRpc/test/Consumers.h"

/// The short way of the common event: changed counters of a class whose short key its machine
/// remembers.

namespace VeloSdkRpc::test {
namespace {

using detail::ShortKeyMemo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// What is remembered ------------------------------------------------------------------------------

class ShortKeyMemoTest : public testing::Test {
 protected:
   ShortKeyMemoTest() {
      table->shortKeyIs( a, 5 );
      table->shortKeyIs( b, 6 );
      memo.remember( *table, 5 );
   }
   bool isGood() const { return memo.isGood( *table ); }

   bool isPending() const { return memo.isPending( *backlog ); }
   void file( std::uint64_t shortKey, bool deleted = false ) {
      backlog->backlogIs( PbrCounters( shortKey, a, nullptr, deleted ) );
   }
   /// That one of its records is pending is remembered, and then that happens.
   bool isPendingAfter( const std::function< void() > & what ) {
      file( 5 );
      memo.rememberPending( *backlog );
      what();
      return isPending();
   }

   const Lumo::Ptr< PbrCountersKeyCompressionTable > table = PbrCountersKeyCompressionTableIs();
   const Lumo::Ptr< PbrCountersBacklog > backlog = PbrCountersBacklogIs( table );
   const PbrCountersKey a = World::longKey( "p", "A" ), b = World::longKey( "p", "B" );
   ShortKeyMemo memo;
};

TEST_F( ShortKeyMemoTest, AtFirstItRemembersNothing ) {
   EXPECT_FALSE( ShortKeyMemo().isGood( *table ) );
   EXPECT_FALSE( ShortKeyMemo().isGood( *PbrCountersKeyCompressionTableIs() ) );
}

TEST_F( ShortKeyMemoTest, WhatTheTableSaidIsGood ) {
   EXPECT_TRUE( isGood() );
   EXPECT_EQ( memo.shortKey(), 5U );
}

TEST_F( ShortKeyMemoTest, NewPairingsAndWhatBreaksNoneLeaveItGood ) {
   table->shortKeyIs( World::longKey( "p", "C" ), 7 );
   table->nextKeyIs( 7 );
   table->novelKeyIs( 7 );
   table->clearNovelKeys();
   EXPECT_EQ( table->shortKeyDel( World::longKey( "p", "unknown" ) ), 0U );
   EXPECT_TRUE( isGood() );
}

TEST_F( ShortKeyMemoTest, ADeletedPairingMakesItBadWhosesoeverItWas ) {
   table->shortKeyDel( b );
   EXPECT_FALSE( isGood() );
   memo.remember( *table, 5 );
   EXPECT_TRUE( isGood() );
   table->shortKeyDel( a );
   EXPECT_FALSE( isGood() );
}

TEST_F( ShortKeyMemoTest, AnOverwrittenPairingMakesItBad ) {
   table->shortKeyIs( a, 9 );
   EXPECT_FALSE( isGood() );
   memo.remember( *table, 9 );
   EXPECT_TRUE( isGood() );
   EXPECT_EQ( memo.shortKey(), 9U );
}

TEST_F( ShortKeyMemoTest, DeletingAllPairingsMakesItBad ) {
   table->shortKeyDelAll();
   EXPECT_FALSE( isGood() );
}

TEST_F( ShortKeyMemoTest, AShortKeyThatDoesNotFitIsNotRemembered ) {
   for ( const std::uint64_t most : { std::uint64_t{ 1 } << 40, ~std::uint64_t{ 0 } } ) {
      memo.remember( *table, most );
      EXPECT_FALSE( isGood() );
   }
   memo.remember( *table, ( std::uint64_t{ 1 } << 40 ) - 1 );
   EXPECT_TRUE( isGood() );
   EXPECT_EQ( memo.shortKey(), ( std::uint64_t{ 1 } << 40 ) - 1 );
}

TEST_F( ShortKeyMemoTest, AtFirstNoRecordIsPending ) {
   EXPECT_FALSE( isPending() );
   EXPECT_FALSE( ShortKeyMemo().isPending( *PbrCountersBacklogIs( table ) ) );
}

TEST_F( ShortKeyMemoTest, NewRecordsAndEqualOnesLeaveARecordPending ) {
   EXPECT_TRUE( isPendingAfter( [&] {
      file( 5 );
      file( 6 );
      backlog->backlogDel( 7 );
   } ) );
}

TEST_F( ShortKeyMemoTest, ARecordThatIsWithdrawnOrReplacedMakesItUnsureWhosesoeverItWas ) {
   backlog->frontendIs( Lumo::makeNode< RecordingConsumer >() );
   file( 6 );
   EXPECT_FALSE( isPendingAfter( [&] { backlog->backlogDel( 6 ); } ) );
   EXPECT_FALSE( isPendingAfter( [&] { backlog->backlogDel( 5 ); } ) );
   EXPECT_FALSE( isPendingAfter( [&] { file( 5, true ); } ) );
   EXPECT_FALSE( isPendingAfter( [&] { backlog->backlogDelAll(); } ) );
   EXPECT_FALSE( isPendingAfter( [&] { backlog->process( nullptr ); } ) );
   backlog->frontendIs( nullptr );
   EXPECT_FALSE( isPendingAfter( [&] { backlog->process( nullptr ); } ) );
}

TEST_F( ShortKeyMemoTest, AnotherShortKeyIsNotThatOfThePendingRecord ) {
   memo.rememberPending( *backlog );
   EXPECT_TRUE( isPending() );
   memo.remember( *table, 6 );
   EXPECT_FALSE( isPending() );
}

// What comes of it --------------------------------------------------------------------------------

class CommonEventTest : public BacklogMachineTest {
 protected:
   CommonEventTest() : counters( tree.addClass( "p", "A" ) ) {
      start( kSynchronous );
      tree.count( "p", "A", 1 ); // The machine of the class has met its short key.
      table->clearNovelKeys();
   }

   const Lumo::Ptr< CountersData > counters;
};

TEST_F( CommonEventTest, AnEqualRecordThatIsPendingIsLeftAlone ) {
   int heard = 0;
   const auto listening = onBacklog( [&]( std::uint64_t, const PbrCounters * ) { ++heard; } );
   tree.count( "p", "A", 2 );
   tree.count( "p", "A", 3 );
   EXPECT_EQ( heard, 0 );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, longKey( "p", "A" ), counters, false ) );
}

TEST_F( CommonEventTest, ARecordThatIsWithdrawnWhileItsFilingIsToldIsFiledAgain ) {
   backlog->backlogDelAll();
   int withdrawals = 3;
   const auto withdrawing = onBacklog( [&]( std::uint64_t key, const PbrCounters * filed ) {
      if ( filed && withdrawals-- > 0 ) {
         backlog->backlogDel( key );
         EXPECT_EQ( filed->data(), counters ); // It can be read all the same.
      }
   } );
   for ( const std::uint64_t packets : { 2, 3, 4 } ) {
      tree.count( "p", "A", packets );
      EXPECT_FALSE( record( 1 ) );
   }
   tree.count( "p", "A", 5 );
   EXPECT_TRUE( record( 1 ) );
}

TEST_F( CommonEventTest, WhoeverIsToldOfARecordMayDropTheMachine ) {
   backlog->backlogDelAll();
   const auto dropping = onBacklog( [&]( std::uint64_t, const PbrCounters * filed ) {
      sm = nullptr;
      EXPECT_EQ( filed->longKey(), longKey( "p", "A" ) );
   } );
   tree.count( "p", "A", 2 );
   EXPECT_TRUE( record( 1 ) );
   tree.count( "p", "A", 3 );
   EXPECT_FALSE( sm );
}

TEST_F( CommonEventTest, ItDoesNotHoldTheMachineAsTheRulesDo ) {
   unsigned holders = 0;
   const auto looking =
      onBacklog( [&]( std::uint64_t, const PbrCounters * ) { holders = sm->references(); } );
   backlog->backlogDelAll();
   tree.count( "p", "A", 2 );
   EXPECT_EQ( holders, 1U );              // The test.
   const Lumo::CapturingTraceSink traces; // What is traced goes by the rules.
   backlog->backlogDelAll();
   tree.count( "p", "A", 3 );
   EXPECT_GT( holders, 1U );
}

TEST_F( CommonEventTest, AScanWhileARecordIsToldIsPartOfTheReaction ) {
   backlog->backlogDelAll();
   std::vector< bool > inReactor;
   const auto watching = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
      inReactor.push_back( sm->rootSm0()->inReactor() );
   } );
   tree.count( "p", "A", 2 );
   EXPECT_THAT( inReactor, ElementsAre( true ) );
   EXPECT_FALSE( sm->rootSm0()->inReactor() );
}

TEST_F( CommonEventTest, ARecordThatHasBeenDeliveredIsFiledAgain ) {
   std::vector< std::uint64_t > filed;
   backlog->backlogDel( 1 );
   const auto listening =
      onBacklog( [&]( std::uint64_t key, const PbrCounters * ) { filed.push_back( key ); } );
   tree.count( "p", "A", 2 );
   EXPECT_THAT( filed, ElementsAre( 1 ) );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, longKey( "p", "A" ), counters, false ) );
   EXPECT_THAT( table->novelKey(), IsEmpty() );
}

TEST_F( CommonEventTest, AnotherRecordThatIsPendingUnderTheKeyIsReplaced ) {
   const PbrCounters live( 1, longKey( "p", "A" ), counters, false );
   const auto strangers = Lumo::makeNode< CountersData >( "A" );
   for ( const PbrCounters & other : { PbrCounters( 1, longKey( "p", "A" ), nullptr, true ),
                                       PbrCounters( 1, longKey( "p", "A" ), counters, true ),
                                       PbrCounters( 1, longKey( "q", "A" ), counters, false ),
                                       PbrCounters( 1, longKey( "p", "A" ), strangers, false ) } ) {
      backlog->backlogIs( other );
      tree.count( "p", "A", counters->countData().packets() + 1 );
      EXPECT_EQ( record( 1 ), live );
   }
}

TEST_F( CommonEventTest, ARecordOfAnotherLongKeyThatIsPendingUnderTheKeyIsReplaced ) {
   for ( const PbrCountersKey & other : { longKey( "q", "A" ), longKey( "p", "B" ),
                                          PbrCountersKey( PolicyMapKey( "p" ), "A", "rule" ) } ) {
      backlog->backlogIs( PbrCounters( 1, other, counters, false ) );
      tree.count( "p", "A", counters->countData().packets() + 1 );
      EXPECT_EQ( record( 1 ).longKey(), longKey( "p", "A" ) ) << other;
   }
}

TEST_F( CommonEventTest, AKeyThatWasRenumberedBehindTheMachineIsFiledUnderTheNewNumber ) {
   for ( const bool pending : { true, false } ) {
      table->shortKeyIs( longKey( "p", "A" ), pending ? 40 : 50 );
      if ( !pending ) { backlog->backlogDelAll(); }
      tree.count( "p", "A", pending ? 2 : 3 );
      EXPECT_TRUE( record( pending ? 40 : 50 ) );
   }
   EXPECT_FALSE( record( 40 ) );
   EXPECT_EQ( table->nextKey(), 1U );
}

TEST_F( CommonEventTest, AKeyThatWasTakenAwayBehindTheMachineIsHandedOutAnew ) {
   table->shortKeyDel( longKey( "p", "A" ) );
   tree.count( "p", "A", 2 );
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
   EXPECT_TRUE( record( 2 ) );
   EXPECT_THAT( table->novelKey(), SizeIs( 1 ) );
}

TEST_F( CommonEventTest, TwoMachinesOverOneTableFileUnderTheKeyThatOneOfThemChanged ) {
   const auto otherBacklog = PbrCountersBacklogIs( table );
   const auto other = pbrCountersBacklogSmFactory( tree.root, otherBacklog, table, {} );
   tree.count( "p", "A", 2 );
   sm->eventToInput( PolicyMapKey( "p" ), "A", {} );
   backlog->backlogDelAll();
   otherBacklog->backlogDelAll();
   tree.count( "p", "A", 3 );
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
   EXPECT_TRUE( record( 2 ) );
   EXPECT_TRUE( otherBacklog->backlog()[std::uint64_t{ 2 }] );
   EXPECT_THAT( otherBacklog->backlog(), SizeIs( 1 ) );
}

TEST_F( CommonEventTest, WhileReconcilingTheRulesRunAndTheKeyIsSeen ) {
   sm = nullptr;
   loop.endlessSlices();
   backlog->backlogIs( PbrCounters( 99, longKey( "gone", "A" ), nullptr, false ) );
   backlog->backlogIs( PbrCounters( 98, longKey( "gone", "B" ), nullptr, false ) );
   start( kAsynchronous );
   loop.runOne(); // Scanned; the deletion scan has begun.
   ASSERT_TRUE( sm->backlogBacklogOutputReconciling() );
   sm->backlogBacklogOutputSeenDelAll();
   tree.count( "p", "A", 2 );
   EXPECT_THAT( sm->backlogBacklogOutputSeen(), SizeIs( 1 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
