// Streams that break, and what becomes of them; see docs/STREAM.md.

#include "agent/test/StreamWorld.h"

#include <gmock/gmock.h>

namespace VeloAgent::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class PbrStreamResumeTest : public testing::Test, protected StreamWorld {
 protected:
   static StreamOptions smallOptions() {
      return { .resumeTime = 60s,
               .stallTime = 30s,
               .drainTime = 5s,
               .undoRecords = 64,
               .recordsPerMessage = 4,
               .namesPerMessage = 1'000'000,
               .mostClients = 3 };
   }
   PbrStreamResumeTest() : StreamWorld( smallOptions() ) {
      for ( int n = 1; n <= 10; ++n ) { tree.addClass( "web", "c" + std::to_string( n ) ); }
      client.begins();
      settle( client );
   }
   ~PbrStreamResumeTest() override { EXPECT_THAT( client.faults, IsEmpty() ); }

   void returns( std::size_t messagesAgo = 0 ) {
      client.returns( messagesAgo );
      settle( client );
   }
   Opened::Outcome outcome() const { return client.log.at( 0 ).opened().outcome(); }
   std::size_t recordsOfLastCall() const {
      std::size_t count = 0;
      for ( const auto & message : client.log ) {
         count += static_cast< std::size_t >( message.batch().records_size() );
      }
      return count;
   }

   StreamClient client{ streams };
};

TEST_F( PbrStreamResumeTest, AClientThatReturnsGoesOnWhereItWas ) {
   client.breaksOff();
   tree.count( "web", "c3", 7 );
   tree.removeClass( "web", "c4" );
   settle();
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( recordsOfLastCall(), 2U );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, ItGoesOnFromAnyMessageThatItHasTakenIn ) {
   const std::size_t all = client.messages();
   for ( std::size_t ago = 0; ago < all; ++ago ) {
      StreamClient other( streams );
      other.begins();
      settle( other );
      tree.removeClass( "web", "c1" );
      settle( other );
      other.breaksOff();
      tree.addClass( "web", "c1", ago );
      tree.count( "web", "c2", 100 + ago );
      settle();
      other.returns( ago );
      settle( other );
      EXPECT_EQ( other.log.at( 0 ).opened().outcome(), Opened::OUTCOME_RESUMED ) << ago;
      EXPECT_EQ( other.contents(), tree.contents() ) << ago;
      EXPECT_TRUE( other.knows().inSync );
      EXPECT_THAT( other.faults, IsEmpty() ) << ago;
   }
}

TEST_F( PbrStreamResumeTest, WhatWasOnItsWayWhenItBrokeIsToldAgain ) {
   tree.count( "web", "c3", 7 );
   tree.removeClass( "web", "c4" );
   tree.addClass( "web", "c11", 1 );
   settle(); // Sent, and never taken.
   client.breaksOff();
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( recordsOfLastCall(), 3U );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, ADeletionToldInVainIsToldAgain ) {
   tree.removeClass( "web", "c4" );
   settle( client );
   returns( 1 );
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, ADeletionToldAgainStillHasItsLongKeyWhereThatIsAskedFor ) {
   StreamClient stateless( streams, true );
   stateless.begins();
   settle( stateless );
   tree.removeClass( "web", "c4" );
   settle( stateless );
   stateless.returns( 1 );
   settle( stateless );
   EXPECT_EQ( stateless.contents(), tree.contents() );
   EXPECT_THAT( stateless.faults, IsEmpty() );
}

TEST_F( PbrStreamResumeTest, AStreamResumedInItsSnapshotGoesOnWithTheSnapshot ) {
   client.begins();
   loop.runUntilIdle();
   client.takes(); // opened
   loop.runUntilIdle();
   client.takes(); // some of ten
   loop.runUntilIdle();
   const std::size_t known = client.knows().names.size();
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( recordsOfLastCall(), 10 - known );
   EXPECT_TRUE( client.knows().inSync );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, AStreamResumedBehindItsInSyncHasNoOther ) {
   returns();
   for ( const auto & message : client.log ) { EXPECT_FALSE( message.has_in_sync() ); }
}

TEST_F( PbrStreamResumeTest, AStreamResumedBeforeItsInSyncHasOne ) {
   returns( 1 );
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_TRUE( client.log.back().has_in_sync() );
}

TEST_F( PbrStreamResumeTest, AnUndoneMessageCannotBeResumedFrom ) {
   tree.addClass( "web", "c11" );
   settle( client );
   const std::string undone = client.knows().token;
   returns( 1 );
   velo::rpc::v1::PbrCountersWatchRequest request;
   request.set_resume_token( undone );
   TestCall call;
   streams.open( call, request );
   settle();
   EXPECT_EQ( call.take()->opened().outcome(), Opened::OUTCOME_RESET );
   call.isOver();
}

TEST_F( PbrStreamResumeTest, WithinTheTimeTheTokenIsGood ) {
   client.breaksOff();
   passes( 59'999ms );
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
}

TEST_F( PbrStreamResumeTest, PastTheTimeItIsResetAndNothingIsKept ) {
   client.breaksOff();
   passes( 60s );
   EXPECT_EQ( streams.size(), 0U );
   EXPECT_THAT( clients.clients(), IsEmpty() );
   tree.removeClass( "web", "c4" );
   settle();
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESET );
   EXPECT_TRUE( client.knows().inSync );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, ATokenOlderThanWhatIsRememberedIsReset ) {
   for ( std::uint64_t n = 1; n <= 20; ++n ) {
      for ( int c = 1; c <= 10; ++c ) { tree.count( "web", "c" + std::to_string( c ), n ); }
      settle( client );
   }
   returns( client.messages() - 1 );
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESET );
   EXPECT_EQ( client.contents(), tree.contents() );
   EXPECT_EQ( streams.size(), 1U ) << "the old stream is of no use any more";
}

TEST_F( PbrStreamResumeTest, ATokenOfSomebodyElseIsReset ) {
   for ( const std::string & token :
         { std::string( "x" ), std::string( 24, 'x' ), std::string( 1000, '\0' ) } ) {
      velo::rpc::v1::PbrCountersWatchRequest request;
      request.set_resume_token( token );
      TestCall call;
      streams.open( call, request );
      settle();
      EXPECT_EQ( call.take()->opened().outcome(), Opened::OUTCOME_RESET );
      call.isOver();
      passes( 60s );
   }
}

TEST_F( PbrStreamResumeTest, ATokenOfTheOtherFormIsReset ) {
   velo::rpc::v1::PbrCountersWatchRequest request;
   request.set_resume_token( client.knows().token );
   request.set_always_long_keys( true );
   TestCall call;
   streams.open( call, request );
   settle();
   EXPECT_EQ( call.take()->opened().outcome(), Opened::OUTCOME_RESET );
   call.isOver();
}

TEST_F( PbrStreamResumeTest, ATokenOfAStreamInUseTakesItOver ) {
   tree.count( "web", "c3", 7 );
   settle();
   returns();
   ASSERT_TRUE( client.oldCall().closed() );
   EXPECT_EQ( client.oldCall().why(), StreamEnd::takenOver );
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   client.oldCall().isOver();
   EXPECT_EQ( client.contents(), tree.contents() );
   EXPECT_EQ( streams.size(), 1U );
}

TEST_F( PbrStreamResumeTest, AClientThatTakesNothingIsClosedWithAReasonAndMayReturn ) {
   tree.count( "web", "c3", 7 );
   settle();
   passes( 29'999ms );
   EXPECT_FALSE( client.call().closed() );
   passes( 1ms );
   ASSERT_TRUE( client.call().closed() );
   EXPECT_EQ( client.call().why(), StreamEnd::exhausted );
   EXPECT_THAT( client.call().text(), HasSubstr( "30000 ms" ) );
   client.breaksOff();
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, AClientThatHasNothingToTakeIsNotStuck ) {
   passes( 10min );
   EXPECT_FALSE( client.call().closed() );
}

TEST_F( PbrStreamResumeTest, AClientTooManyIsRefusedWithAReason ) {
   StreamClient second( streams );
   StreamClient third( streams );
   StreamClient fourth( streams );
   second.begins();
   third.begins();
   fourth.begins();
   ASSERT_TRUE( fourth.call().closed() );
   EXPECT_EQ( fourth.call().why(), StreamEnd::exhausted );
   EXPECT_THAT( fourth.call().text(), HasSubstr( "3 clients" ) );
}

TEST_F( PbrStreamResumeTest, TheOneAwayLongestMakesRoomForANewClient ) {
   StreamClient second( streams );
   StreamClient third( streams );
   StreamClient fourth( streams );
   second.begins();
   third.begins();
   settle( { &second, &third } );
   second.breaksOff();
   passes( 1s );
   client.breaksOff();
   passes( 1s );
   fourth.begins();
   settle( fourth );
   EXPECT_TRUE( fourth.knows().inSync );
   EXPECT_EQ( streams.size(), 3U );
   returns();
   EXPECT_EQ( outcome(), Opened::OUTCOME_RESUMED ) << "it was not away longest";
   EXPECT_THAT( fourth.faults, IsEmpty() );
}

TEST_F( PbrStreamResumeTest, AShutdownTellsWhatIsPendingAndClosesWithARetryableStatus ) {
   tree.count( "web", "c3", 7 );
   settle();
   tree.count( "web", "c4", 8 );
   settle();
   streams.drain();
   EXPECT_FALSE( client.call().closed() ) << "one is on its way, one waits";
   settle( client );
   ASSERT_TRUE( client.call().closed() );
   EXPECT_EQ( client.call().why(), StreamEnd::unavailable );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, AShutdownTellsWhatTheLibraryHasYetToDeliver ) {
   tree.count( "web", "c3", 7 );
   streams.drain();
   EXPECT_FALSE( client.call().closed() ) << "the library's task has not run";
   settle( client );
   streams.tick();
   ASSERT_TRUE( client.call().closed() );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamResumeTest, AShutdownEndsAlsoWhereWhatWasPendingCameToNothing ) {
   tree.addClass( "web", "passing", 1 );
   streams.drain();
   EXPECT_FALSE( client.call().closed() );
   tree.removeClass( "web", "passing" );
   settle( client );
   streams.tick();
   EXPECT_TRUE( client.call().closed() );
}

TEST_F( PbrStreamResumeTest, AShutdownDoesNotWaitForSleepersBeyondItsDeadline ) {
   tree.count( "web", "c3", 7 );
   settle();
   streams.drain();
   streams.closeNow();
   ASSERT_TRUE( client.call().closed() );
   EXPECT_EQ( client.call().why(), StreamEnd::unavailable );
}

TEST_F( PbrStreamResumeTest, NobodyNewIsServedDuringAShutdown ) {
   streams.drain();
   StreamClient late( streams );
   late.begins();
   ASSERT_TRUE( late.call().closed() );
   EXPECT_EQ( late.call().why(), StreamEnd::unavailable );
}

} // namespace
} // namespace VeloAgent::test
