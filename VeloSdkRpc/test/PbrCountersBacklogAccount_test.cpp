// What became of all the records that a backlog was given, told after every kind of end that a
// record can come to.

#include "VeloSdkRpc/test/BacklogTest.h"

namespace VeloSdkRpc::test {
namespace {

class BacklogAccountTest : public BacklogTest {
 protected:
   void run() { backlog->process( task ); }
   void runThatBreaks() { EXPECT_THROW( run(), ConsumerBroke ); }

   /// It must be just that, and nothing may be missing.
   void expect( const PbrCountersBacklogAccount & account ) {
      EXPECT_TRUE( backlog->account().isBalanced() );
      EXPECT_EQ( backlog->account().arrived, account.arrived );
      EXPECT_EQ( backlog->account().delivered, account.delivered );
      EXPECT_EQ( backlog->account().coalesced, account.coalesced );
      EXPECT_EQ( backlog->account().cancelled, account.cancelled );
      EXPECT_EQ( backlog->account().dropped, account.dropped );
      EXPECT_EQ( backlog->account().pending, account.pending );
   }

   const Lumo::Ptr< Oru::Task > task = Lumo::makeNode< Oru::Task >(
      Oru::TaskSchedulerRoot::findOrCreateScheduler(), Oru::TaskPriority{ 3 }, "drain" );
};

TEST_F( BacklogAccountTest, DoesNotBalanceWhenARecordIsMissing ) {
   EXPECT_TRUE( PbrCountersBacklogAccount().isBalanced() );
   EXPECT_TRUE( ( PbrCountersBacklogAccount{ 15, 1, 2, 3, 4, 5 } ).isBalanced() );
   EXPECT_FALSE( ( PbrCountersBacklogAccount{ 16, 1, 2, 3, 4, 5 } ).isBalanced() );
}

TEST_F( BacklogAccountTest, StoredRecordsHaveArrivedAndArePending ) {
   file( { 1, 2 } );
   expect( { .arrived = 2, .pending = 2 } );
}

TEST_F( BacklogAccountTest, AnEqualRecordIsCoalesced ) {
   const PbrCounters record = update( 1 );
   backlog->backlogIs( record );
   backlog->backlogIs( record );
   expect( { .arrived = 2, .coalesced = 1, .pending = 1 } );
}

TEST_F( BacklogAccountTest, AReplacedRecordIsCoalesced ) {
   file( { 1 } );
   backlog->backlogIs( deletion( 1 ) );
   expect( { .arrived = 2, .coalesced = 1, .pending = 1 } );
}

TEST_F( BacklogAccountTest, AWithdrawnRecordIsCancelled ) {
   file( { 1 } );
   backlog->backlogDel( 1 );
   backlog->backlogDel( 1 );
   expect( { .arrived = 1, .cancelled = 1 } );
}

TEST_F( BacklogAccountTest, AllWithdrawnRecordsAreCancelledWhetherSomebodyListensOrNot ) {
   file( { 1, 2 } );
   backlog->backlogDelAll();
   expect( { .arrived = 2, .cancelled = 2 } );
   const auto listener = Lumo::makeNode< Listener >( backlog );
   file( { 1, 2, 3 } );
   backlog->backlogDelAll();
   expect( { .arrived = 5, .cancelled = 5 } );
}

TEST_F( BacklogAccountTest, WithoutAFrontendEverythingIsDropped ) {
   file( { 1, 2 } );
   run();
   expect( { .arrived = 2, .dropped = 2 } );
}

TEST_F( BacklogAccountTest, WhatARunLeavesOverIsPending ) {
   watch();
   file( { 1, 2, 3 } );
   loop.yieldsAfter( 1 );
   run();
   expect( { .arrived = 3, .delivered = 2, .pending = 1 } );
}

TEST_F( BacklogAccountTest, TheDeletionOfAKeyThatWasNeverToldIsCancelled ) {
   watch();
   table->novelKeyIs( 1 );
   backlog->backlogIs( deletion( 1 ) );
   run();
   expect( { .arrived = 1, .cancelled = 1 } );
}

TEST_F( BacklogAccountTest, ARecordThatTheConsumerThrewAtIsPendingAgain ) {
   watch();
   file( { 1, 2 } );
   consumer->beforeItem = []( const auto &, auto ) { throw ConsumerBroke(); };
   runThatBreaks();
   expect( { .arrived = 2, .pending = 2 } );
}

TEST_F( BacklogAccountTest, ALeftOverThatWasOvertakenIsCoalesced ) {
   watch();
   file( { 1 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      file( { 1 } );
      throw ConsumerBroke();
   };
   runThatBreaks();
   expect( { .arrived = 2, .coalesced = 1, .pending = 1 } );
}

TEST_F( BacklogAccountTest, TheRestOfARunIsDroppedWhenItsConsumerIsTakenAway ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3 } );
   consumer->beforeItem = [this]( const auto &, auto ) { backlog->frontendIs( nullptr ); };
   run();
   expect( { .arrived = 3, .delivered = 1, .dropped = 2 } );
}

TEST_F( BacklogAccountTest, TheRestOfARunIsCancelledWhenEverythingIsFiledAnew ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2, 3 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      backlog->allFiledAnew();
      file( { 1 } );
   };
   run();
   expect( { .arrived = 4, .delivered = 1, .cancelled = 2, .pending = 1 } );
}

TEST_F( BacklogAccountTest, SoIsTheRecordInHandIfItsConsumerThenThrows ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      backlog->allFiledAnew();
      throw ConsumerBroke();
   };
   runThatBreaks();
   expect( { .arrived = 2, .cancelled = 2 } );
}

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS

/// Looks at the account whenever a run has ended.
class Auditor final : public detail::RunWitness {
 public:
   Auditor() : before_( detail::runWitnessIs( this ) ) {}
   ~Auditor() { detail::runWitnessIs( before_ ); }
   Auditor( const Auditor & ) = delete;
   Auditor & operator=( const Auditor & ) = delete;

   void runBegins( const PbrCountersBacklog & backlog ) override { backlog_ = &backlog; }
   void asked( bool ) override {}
   void item( std::uint64_t, const PbrCounters & ) override {}
   void askedIfOutdated( bool ) override {}
   void runEnded( const QuonLumo::MiBacklogProgress &, bool ) override {
      ++audits;
      EXPECT_TRUE( backlog_->account().isBalanced() );
   }

   int audits = 0;

 private:
   detail::RunWitness * const before_;
   const PbrCountersBacklog * backlog_ = nullptr;
};

TEST_F( BacklogAccountTest, WhoWitnessesTheEndOfARunFindsItAccountedFor ) {
   loop.yieldsAfter( 0 );
   watch();
   file( { 1, 2 } );
   consumer->beforeItem = [this]( const auto &, auto ) { file( { 1, 2 } ); };
   const Auditor auditor;
   run();
   expect( { .arrived = 4, .delivered = 1, .coalesced = 1, .pending = 2 } );
   EXPECT_EQ( auditor.audits, 1 );
}

#endif

} // namespace
} // namespace VeloSdkRpc::test
