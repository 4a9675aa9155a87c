#include "agent/Output.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace VeloAgent {
namespace {

/// Two pipes: one as the output, one to ask for the end.
class OutputTest : public testing::Test {
 protected:
   void SetUp() override {
      std::signal( SIGPIPE, SIG_IGN );
      ASSERT_EQ( ::pipe( data_ ), 0 );
      ASSERT_EQ( ::pipe( stop_ ), 0 );
   }
   void TearDown() override {
      for ( const int fd : { data_[0], data_[1], stop_[0], stop_[1] } ) { ::close( fd ); }
   }

   void askToStop() { ASSERT_EQ( ::write( stop_[1], "x", 1 ), 1 ); }
   void readerLeaves() {
      ::close( data_[0] );
      data_[0] = ::open( "/dev/null", O_RDONLY );
   }
   void readerFallsAsleep() {
      ASSERT_EQ( ::fcntl( data_[1], F_SETFL, O_NONBLOCK ), 0 );
      const std::string page( PIPE_BUF, 'x' );
      while ( ::write( data_[1], page.data(), page.size() ) > 0 ) {}
      ASSERT_EQ( ::fcntl( data_[1], F_SETFL, 0 ), 0 );
   }
   std::string received( std::size_t size ) {
      std::string text( size, '\0' );
      const ssize_t n = ::read( data_[0], text.data(), size );
      return text.substr( 0, n < 0 ? 0 : static_cast< std::size_t >( n ) );
   }

   int data_[2];
   int stop_[2];
   Output output() {
      return { data_[1], stop_[0], [this] { ++failures_; } };
   }
   int failures_ = 0;
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
   bool failed = false;
   Output out( ::open( "/dev/full", O_WRONLY ), -1, [&failed] { failed = true; } );
   out.line( "one" );
   out.flush();
   EXPECT_EQ( out.error(), ENOSPC );
   EXPECT_TRUE( failed );
}

TEST_F( OutputTest, ASleepingReaderCannotHoldUpTheEnd ) {
   Output out = output();
   readerFallsAsleep();
   askToStop();
   out.line( "one" );
   out.flush();
   EXPECT_EQ( out.error(), ECANCELED );
}

TEST_F( OutputTest, WhatIsPendingStillLeavesWhenTheEndIsAskedFor ) {
   Output out = output();
   askToStop();
   out.line( "one" );
   out.flush();
   EXPECT_EQ( received( 100 ), "one\n" );
   EXPECT_EQ( out.error(), 0 );
}

} // namespace
} // namespace VeloAgent
