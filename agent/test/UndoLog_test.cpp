#include "agent/stream/ResumeToken.h"
#include "agent/stream/UndoLog.h"

#include <gmock/gmock.h>
#include <vector>

namespace VeloAgent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UndoLogTest : public testing::Test {
 protected:
   /// A message that tells `keys`.
   std::uint64_t message( const std::vector< std::uint64_t > & keys ) {
      for ( const std::uint64_t key : keys ) {
         log_.told( { .shortKey = key, .first = key % 2 == 1, .gone = key % 3 == 0 } );
      }
      return log_.messageEnds(
         [this]( const UndoLog::Told & told ) { dropped_.push_back( told.shortKey ); } );
   }
   std::vector< std::uint64_t > undoneBehind( std::uint64_t sequence ) {
      std::vector< std::uint64_t > keys;
      log_.undoBehind( sequence, [&]( const UndoLog::Told & told ) {
         EXPECT_EQ( told.first, told.shortKey % 2 == 1 );
         EXPECT_EQ( told.gone, told.shortKey % 3 == 0 );
         keys.push_back( told.shortKey );
      } );
      return keys;
   }

   UndoLog log_{ 10 };
   std::vector< std::uint64_t > dropped_;
};

TEST_F( UndoLogTest, TheLastMessagesAreUndoneFromTheLastToTheFirst ) {
   EXPECT_EQ( message( { 1, 2 } ), 1U );
   EXPECT_EQ( message( { 3 } ), 2U );
   EXPECT_EQ( message( { 4, 5 } ), 3U );
   EXPECT_THAT( undoneBehind( 1 ), ElementsAre( 5, 4, 3 ) );
   EXPECT_THAT( undoneBehind( 1 ), IsEmpty() );
}

TEST_F( UndoLogTest, WhatWasUndoneIsOutOfReachAndItsNumbersAreNotUsedAgain ) {
   message( { 1 } );
   message( { 2 } );
   message( { 3 } );
   undoneBehind( 1 );
   EXPECT_TRUE( log_.reaches( 1 ) );
   EXPECT_FALSE( log_.reaches( 2 ) );
   EXPECT_FALSE( log_.reaches( 3 ) );
   EXPECT_EQ( message( { 2 } ), 4U );
   EXPECT_TRUE( log_.reaches( 4 ) );
   EXPECT_FALSE( log_.reaches( 5 ) );
}

TEST_F( UndoLogTest, WholeMessagesAreDroppedFromTheFront ) {
   message( { 1, 2, 3 } );
   message( { 4, 5, 6 } );
   EXPECT_THAT( dropped_, IsEmpty() );
   message( { 7, 8, 9 } );
   EXPECT_THAT( dropped_, ElementsAre( 1, 2, 3 ) );
   EXPECT_TRUE( log_.reaches( 1 ) ) << "what is behind it is there";
   EXPECT_THAT( undoneBehind( 1 ), ElementsAre( 9, 8, 7, 6, 5, 4 ) );
}

TEST_F( UndoLogTest, MessagesWithoutRecordsAreBoundedToo ) {
   for ( int n = 0; n < 100; ++n ) { message( {} ); }
   EXPECT_FALSE( log_.reaches( 80 ) );
   EXPECT_TRUE( log_.reaches( 91 ) );
}

TEST_F( UndoLogTest, AMessageLargerThanTheLogIsDroppedWhole ) {
   message( { 1 } );
   message( { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11 } );
   EXPECT_FALSE( log_.reaches( 1 ) );
   EXPECT_TRUE( log_.reaches( 2 ) );
   EXPECT_THAT( undoneBehind( 2 ), IsEmpty() );
}

TEST( ResumeTokenTest, SaysWhatItWasMadeOf ) {
   const ResumeToken made{ .stream = newStreamId(), .sequence = 77 };
   const auto read = ResumeToken::from( made.bytes() );
   ASSERT_TRUE( read );
   EXPECT_EQ( read->stream, made.stream );
   EXPECT_EQ( read->sequence, 77U );
}

TEST( ResumeTokenTest, OfAnotherLengthIsNone ) {
   EXPECT_FALSE( ResumeToken::from( "" ) );
   EXPECT_FALSE( ResumeToken::from( std::string( 23, 'x' ) ) );
   EXPECT_FALSE( ResumeToken::from( std::string( 25, 'x' ) ) );
}

TEST( ResumeTokenTest, StreamsDiffer ) { EXPECT_NE( newStreamId(), newStreamId() ); }

} // namespace
} // namespace VeloAgent
