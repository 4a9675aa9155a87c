#include "velo/sdk_scoped_lock.h"

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Assert.h"
#include "Lumo/Thread.h"
#include "Oru/Oru.h"

namespace velo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Threads that take the lock, and a log that only its holder writes.
class SdkLockTest : public testing::Test {
 protected:
   /// Returns once the new thread waits for the lock (which the caller holds). Under the lock the
   /// thread logs `name`, then does `work`.
   void startWaiting( const std::string & name, const std::function< void() > & work = [] {} ) {
      const std::size_t before = sdk_scoped_lock::waiting();
      threads_.emplace_back( [this, name, work] {
         const sdk_scoped_lock lock;
         log.push_back( name );
         work();
      } );
      while ( sdk_scoped_lock::waiting() == before ) { std::this_thread::yield(); }
   }

   void joinAll() {
      for ( std::thread & thread : threads_ ) { thread.join(); }
      threads_.clear();
   }

   std::vector< std::string > log;

 private:
   std::vector< std::thread > threads_;
};

TEST_F( SdkLockTest, IsHandedOverInOrderOfArrival ) {
   {
      const sdk_scoped_lock lock;
      for ( const char * name : { "first", "second", "third", "fourth" } ) { startWaiting( name ); }
      EXPECT_EQ( sdk_scoped_lock::waiting(), 4u );
      EXPECT_THAT( log, IsEmpty() );
   }
   joinAll();
   EXPECT_THAT( log, ElementsAre( "first", "second", "third", "fourth" ) );
   EXPECT_EQ( sdk_scoped_lock::waiting(), 0u );
}

TEST_F( SdkLockTest, TheOneWhoLetsGoAndAsksAgainIsBehindThoseWhoWaited ) {
   {
      const sdk_scoped_lock lock;
      startWaiting( "waited" );
      startWaiting( "waited too" );
   }
   {
      const sdk_scoped_lock lock;
      log.push_back( "again" );
   }
   joinAll();
   EXPECT_THAT( log, ElementsAre( "waited", "waited too", "again" ) );
}

TEST_F( SdkLockTest, AThreadThatHoldsItMayTakeItAgainAndKeepsItUntilTheLastGuardGoes ) {
   {
      const sdk_scoped_lock outer;
      {
         const sdk_scoped_lock inner;
         startWaiting( "waited" );
      }
      EXPECT_EQ( sdk_scoped_lock::waiting(), 1u );
      EXPECT_THAT( log, IsEmpty() );
   }
   joinAll();
   EXPECT_THAT( log, ElementsAre( "waited" ) );
}

TEST_F( SdkLockTest, AnotherThreadHasItsTurnBetweenTwoSlicesOfABusyLoop ) {
   class Busy final : public Oru::Task {
    public:
      Busy( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, std::function< void() > work )
         : Task( scheduler, 0, "busy" ), work_( std::move( work ) ) {}

    private:
      void taskRun() override {
         work_();
         scheduleTask();
      }
      std::function< void() > work_;
   };
   const auto scheduler = Lumo::makeNode< Oru::TaskScheduler >();
   const auto busy = Lumo::makeNode< Busy >( scheduler, [this] {
      log.push_back( "slice" );
      if ( log.size() == 1 ) { startWaiting( "other thread" ); }
   } );
   busy->scheduleTask();
   for ( int step = 0; step < 3; ++step ) {
      const sdk_scoped_lock lock;
      scheduler->runOne();
   }
   joinAll();
   EXPECT_THAT( log, ElementsAre( "slice", "other thread", "slice", "slice" ) );
}

TEST_F( SdkLockTest, ManyThreadsNeverHoldItTogether ) {
   constexpr int kThreads = 4, kRounds = 500;
   int count = 0; // plain on purpose: only the lock protects it
   std::vector< std::thread > threads;
   for ( int n = 0; n < kThreads; ++n ) {
      threads.emplace_back( [&] {
         for ( int round = 0; round < kRounds; ++round ) {
            const sdk_scoped_lock lock;
            const sdk_scoped_lock again;
            ++count;
         }
      } );
   }
   for ( std::thread & thread : threads ) { thread.join(); }
   EXPECT_EQ( count, kThreads * kRounds );
}

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS

/// Turns a failed assertion into an exception.
class Throws final : public Lumo::AssertionHandler {
 public:
   struct Failed {};

   Throws() : before_( Lumo::assertionHandlerIs( this ) ) {}
   ~Throws() override { Lumo::assertionHandlerIs( before_ ); }
   void assertionFailed( const Lumo::AssertionFailure & ) override { throw Failed(); }

 private:
   Lumo::AssertionHandler * before_;
};

bool mayTouchEntities() {
   try {
      Lumo::Impl::checkEventLoopThread();
      return true;
   } catch ( const Throws::Failed & ) { return false; }
}

TEST_F( SdkLockTest, WhoHoldsItCountsAsTheEventLoopUntilLettingGo ) {
   const Throws throws;
   ASSERT_TRUE( mayTouchEntities() );
   std::thread( [] {
      EXPECT_FALSE( mayTouchEntities() );
      {
         const sdk_scoped_lock outer;
         { const sdk_scoped_lock inner; }
         EXPECT_TRUE( mayTouchEntities() );
      }
      EXPECT_FALSE( mayTouchEntities() );
   } ).join();
   EXPECT_TRUE( mayTouchEntities() );
}

TEST_F( SdkLockTest, TheLoopHasItsRoleBackAfterAHandOver ) {
   const Throws throws;
   ASSERT_TRUE( mayTouchEntities() );
   {
      const sdk_scoped_lock lock;
      startWaiting( "one", [] { EXPECT_TRUE( mayTouchEntities() ); } );
      startWaiting( "two", [] { EXPECT_TRUE( mayTouchEntities() ); } );
   }
   joinAll();
   EXPECT_TRUE( mayTouchEntities() );
}

#endif

} // namespace
} // namespace velo
