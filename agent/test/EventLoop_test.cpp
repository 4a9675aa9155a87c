#include "agent/EventLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <unistd.h>

namespace VeloAgent {
namespace {

/// A task whose runs the test writes down.
class Work final : public Oru::Task {
 public:
   Work( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, std::function< void( Work & ) > run )
      : Oru::Task( scheduler, 3, "work" ), run_( std::move( run ) ) {}

 private:
   void taskRun() override { run_( *this ); }

   std::function< void( Work & ) > run_;
};

class EventLoopTest : public testing::Test {
 protected:
   Lumo::Ptr< Work > task( std::function< void( Work & ) > run ) {
      return Lumo::makeNode< Work >( scheduler_, std::move( run ) );
   }

   Lumo::Ptr< Oru::TaskScheduler > scheduler_ = Lumo::makeNode< Oru::TaskScheduler >();
   EventLoop loop_{ scheduler_ };
};

TEST_F( EventLoopTest, ATaskThatWaitsIsRun ) {
   const auto once = task( [this]( Work & ) { loop_.stop(); } );
   once->scheduleTask();
   loop_.run();
   EXPECT_EQ( once->taskRuns(), 1U );
}

TEST_F( EventLoopTest, EveryWaitingTaskIsRun ) {
   int runs = 0;
   const auto count = [&]( Work & ) {
      if ( ++runs == 3 ) { loop_.stop(); }
   };
   const auto a = task( count );
   const auto b = task( count );
   const auto c = task( count );
   for ( const auto & each : { a, b, c } ) { each->scheduleTask(); }
   loop_.run();
   EXPECT_EQ( runs, 3 );
}

TEST_F( EventLoopTest, OtherWorkHasItsTurnBetweenTwoRuns ) {
   std::string order;
   const auto busy = task( [&]( Work & self ) {
      order += 't';
      if ( order.size() < 6 ) { self.scheduleTask(); }
      loop_.post( [&] {
         order += 'p';
         if ( order.size() >= 6 ) { loop_.stop(); }
      } );
   } );
   busy->scheduleTask();
   loop_.run();
   EXPECT_EQ( order, "tptptp" );
}

TEST_F( EventLoopTest, ATaskScheduledByPostedWorkIsRun ) {
   const auto late = task( [this]( Work & ) { loop_.stop(); } );
   loop_.post( [&] { late->scheduleTask(); } );
   loop_.run();
   EXPECT_EQ( late->taskRuns(), 1U );
}

TEST_F( EventLoopTest, AnotherThreadGetsTheLockHoweverBusyTheLoopIs ) {
   const auto busy = task( []( Work & self ) { self.scheduleTask(); } );
   busy->scheduleTask();
   std::thread client( [&] {
      const velo::sdk_scoped_lock lock;
      EXPECT_FALSE( busy->taskCurrentlyRunning() );
      loop_.stop();
   } );
   loop_.run();
   client.join();
}

TEST_F( EventLoopTest, AnotherThreadMayScheduleUnderTheLock ) {
   const auto once = task( [this]( Work & ) { loop_.stop(); } );
   std::thread client( [&] {
      const velo::sdk_scoped_lock lock;
      once->scheduleTask();
   } );
   loop_.run();
   client.join();
   EXPECT_EQ( once->taskRuns(), 1U );
}

TEST_F( EventLoopTest, NothingIsRunAfterTheStop ) {
   bool late = false;
   loop_.post( [&] {
      loop_.stop();
      loop_.stop();
   } );
   loop_.post( [&] { late = true; } );
   loop_.run();
   EXPECT_FALSE( late );
}

TEST_F( EventLoopTest, AReadableDescriptorEndsItAndStaysReadable ) {
   int pipe[2];
   ASSERT_EQ( ::pipe( pipe ), 0 );
   loop_.whenReadable( pipe[0], [this] { loop_.stop(); } );
   ASSERT_EQ( ::write( pipe[1], "x", 1 ), 1 );
   loop_.run();
   char byte = 0;
   EXPECT_EQ( ::read( pipe[0], &byte, 1 ), 1 );
   ::close( pipe[0] );
   ::close( pipe[1] );
}

TEST_F( EventLoopTest, WhatARunThrowsComesOutAndTheOthersAreRunAfterwards ) {
   const auto broken = task( []( Work & ) { throw std::runtime_error( "broken" ); } );
   const auto sound = task( [this]( Work & ) { loop_.stop(); } );
   broken->scheduleTask();
   sound->scheduleTask();
   EXPECT_THROW( loop_.run(), std::runtime_error );
   loop_.run();
   EXPECT_EQ( sound->taskRuns(), 1U );
}

} // namespace
} // namespace VeloAgent
