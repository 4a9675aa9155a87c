#include "agent/Output.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace VeloAgent {
namespace {

/// A pipe as the output, whose reader is the test.
class OutputTest : public testing::Test {
 protected:
   void SetUp() override {
      std::signal( SIGPIPE, SIG_IGN );
      ASSERT_EQ( ::pipe( pipe_ ), 0 );
   }
   void TearDown() override {
      for ( const int fd : pipe_ ) { ::close( fd ); }
   }

   void readerLeaves() {
      ::close( pipe_[0] );
      pipe_[0] = ::open( "/dev/null", O_RDONLY );
   }
   /// The pipe takes no more. Returns how much it took.
   std::size_t readerFallsAsleep() {
      EXPECT_EQ( ::fcntl( pipe_[1], F_SETFL, O_NONBLOCK ), 0 );
      const std::string page( PIPE_BUF, 'x' );
      std::size_t size = 0;
      while ( ::write( pipe_[1], page.data(), page.size() ) > 0 ) { size += page.size(); }
      EXPECT_EQ( ::fcntl( pipe_[1], F_SETFL, 0 ), 0 );
      return size;
   }
   std::string received( std::size_t size ) {
      std::string text( size, '\0' );
      const ssize_t n = ::read( pipe_[0], text.data(), size );
      return text.substr( 0, n < 0 ? 0 : static_cast< std::size_t >( n ) );
   }

   /// Runs the loop until `condition()` holds.
   template< typename Condition >
   void until( Condition condition ) {
      loop_.context().restart();
      while ( !condition() ) {
         ASSERT_EQ( loop_.context().run_one_for( std::chrono::seconds( 60 ) ), 1U ) << "in vain";
      }
   }

   EventLoop loop_{ Lumo::makeNode< Oru::TaskScheduler >() };
   int pipe_[2];
   int failures_ = 0;
   Output output() {
      return { loop_, pipe_[1], [this] { ++failures_; } };
   }
};

TEST_F( OutputTest, LinesArriveWhenFlushed ) {
   Output out = output();
   out.line( "one" );
   out.line( "two" );
   out.flush();
   EXPECT_EQ( received( 100 ), "one\ntwo\n" );
   EXPECT_EQ( out.error(), 0 );
}

TEST_F( OutputTest, MuchTextIsWrittenBeforeItIsFlushed ) {
   Output out = output();
   const std::string line( 64 * 1024 - 1, 'x' );
   out.line( line );
   EXPECT_EQ( received( 64 * 1024 ).size(), std::size_t{ 64 * 1024 } );
}

TEST_F( OutputTest, AReaderThatLeftIsAnErrorAndNothingMoreIsWritten ) {
   Output out = output();
   readerLeaves();
   out.line( "one" );
   out.flush();
   EXPECT_EQ( out.error(), EPIPE );
   out.line( "two" );
   out.flush();
   EXPECT_EQ( out.error(), EPIPE );
   EXPECT_EQ( failures_, 1 ) << "told once";
}

TEST_F( OutputTest, AFileThatCannotBeWrittenIsAnError ) {
   const int full = ::open( "/dev/full", O_WRONLY );
   bool failed = false;
   Output out( loop_, full, [&failed] { failed = true; } );
   out.line( "one" );
   out.flush();
   EXPECT_EQ( out.error(), ENOSPC );
   EXPECT_TRUE( failed );
   ::close( full );
}

TEST_F( OutputTest, ASleepingReaderIsNotWaitedFor ) {
   Output out = output();
   const std::size_t asleep = readerFallsAsleep();
   bool written = false;
   out.writtenIs( [&written] { written = true; } );
   out.line( "one" );
   out.flush();
   EXPECT_EQ( out.pending(), 4U );
   out.line( "two" );
   out.flush();
   EXPECT_EQ( out.pending(), 8U );
   EXPECT_FALSE( written );

   std::string text = received( asleep ); // Awake again.
   until( [&] { return written; } );
   EXPECT_EQ( out.pending(), 0U );
   EXPECT_EQ( received( 100 ), "one\ntwo\n" );
}

TEST_F( OutputTest, ItWaitsAsOftenAsTheReaderFallsAsleep ) {
   Output out = output();
   for ( int n = 0; n < 3; ++n ) {
      const std::size_t asleep = readerFallsAsleep();
      out.line( "one" );
      out.flush();
      received( asleep );
      until( [&] { return out.pending() == 0; } );
      EXPECT_EQ( received( 100 ), "one\n" );
   }
}

TEST_F( OutputTest, AReaderThatIsSlowLeavesNoRoom ) {
   Output out = output();
   EXPECT_TRUE( out.hasRoom() );
   readerFallsAsleep();
   out.line( std::string( 64 * 1024, 'x' ) );
   EXPECT_FALSE( out.hasRoom() );
}

TEST_F( OutputTest, AReaderThatLeavesInItsSleepIsAnError ) {
   Output out = output();
   readerFallsAsleep();
   out.line( "one" );
   out.flush();
   readerLeaves();
   until( [&] { return out.error() != 0; } );
   EXPECT_EQ( out.error(), EPIPE );
   EXPECT_EQ( failures_, 1 );
   EXPECT_FALSE( out.hasRoom() );
}

TEST_F( OutputTest, TheDescriptorStaysAsItWas ) {
   Output out = output();
   readerFallsAsleep();
   out.line( "one" );
   out.flush();
   EXPECT_EQ( ::fcntl( pipe_[1], F_GETFL ) & O_NONBLOCK, 0 ) << "others may share it";
}

} // namespace
} // namespace VeloAgent
