// What other threads may do with the manager while the loop runs.

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/MgrFixture.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;

class PbrCountersMgrThreadTest : public MgrFixture {
 protected:
   /// Whether another thread has to wait for the SDK lock now. It goes on waiting until `joinAll`.
   bool locked() {
      const auto got = std::make_shared< std::atomic< bool > >( false );
      others_.emplace_back( [got] {
         const velo::sdk_scoped_lock lock;
         *got = true;
      } );
      while ( velo::sdk_scoped_lock::waiting() == 0 && !*got ) { std::this_thread::yield(); }
      return !*got;
   }
   void joinAll() {
      for ( std::thread & other : others_ ) { other.join(); }
      others_.clear();
   }
   ~PbrCountersMgrThreadTest() override { joinAll(); }

 private:
   std::vector< std::thread > others_;
};

TEST_F( PbrCountersMgrThreadTest, BothCallsHoldTheSdkLockFromTheSwitchToTheEnd ) {
   mount();
   std::vector< bool > held;
   const auto listener =
      Lumo::makeNode< BacklogListener >( mgr().backlog(), [&]( short attributeId ) {
         if ( attributeId == PbrCountersBacklog::kFrontend ) { held.push_back( locked() ); }
      } );
   mgr().startWatching( newConsumer() );
   joinAll();
   EXPECT_THAT( held, ElementsAre( true ) );
   {
      const AtTrace making( "create local SMs", [&] { held.push_back( locked() ); } );
      mgr().stopWatching();
   }
   joinAll();
   EXPECT_THAT( held, ElementsAre( true, true ) );
   EXPECT_FALSE( locked() );
}

TEST_F( PbrCountersMgrThreadTest, BothCallsWaitForTheirTurn ) {
   mount();
   std::thread rpc;
   {
      const velo::sdk_scoped_lock lock;
      rpc = std::thread( [this] { mgr().startWatching( newConsumer() ); } );
      while ( velo::sdk_scoped_lock::waiting() == 0 ) { std::this_thread::yield(); }
      EXPECT_TRUE( idle() );
   }
   rpc.join();
   EXPECT_TRUE( streaming() );
   {
      const velo::sdk_scoped_lock lock;
      rpc = std::thread( [this] { mgr().stopWatching(); } );
      while ( velo::sdk_scoped_lock::waiting() == 0 ) { std::this_thread::yield(); }
      EXPECT_TRUE( streaming() );
   }
   rpc.join();
   EXPECT_TRUE( idle() );
}

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS
TEST_F( PbrCountersMgrThreadTest, AQueryFromAnotherThreadIsNoticedWhereThereAreDebugChecks ) {
   mount();
   const PbrCountersKey key = longKey( "edge", "web" );
   EXPECT_NO_THROW( mgr().counters( 1, key ) );
   const Lumo::ThrowingAssertionHandler assertions;
   std::thread( [&] { EXPECT_THROW( mgr().counters( 1, key ), Lumo::AssertionThrown ); } ).join();
}
#endif

/// An RPC thread switches all the time while the loop changes the tree and drains.
TEST_F( PbrCountersMgrThreadTest, SwitchesFromAnotherThreadFallBetweenTheSlicesOfTheLoop ) {
   for ( int n = 0; n < 20; ++n ) { tree.addClass( "edge", std::to_string( n ), 1 ); }
   mount();
   loop.yieldsAfter( 2 );
   std::atomic< unsigned > slices = 0;
   std::atomic< bool > done = false;
   Lumo::Ptr< ReconstructingConsumer > last;
   std::thread rpc( [&] {
      const auto afterASlice = [&] {
         for ( const unsigned before = slices; slices == before; ) { std::this_thread::yield(); }
      };
      for ( int n = 0; n < 30; ++n ) {
         mgr().startWatching( last = newConsumer() );
         afterASlice();
         if ( n % 3 == 0 ) { mgr().startWatching( newRecorder() ); }
         mgr().stopWatching();
         afterASlice();
      }
      mgr().startWatching( last = newConsumer() );
      done = true;
   } );
   for ( unsigned n = 0; !done; ++n ) {
      {
         const velo::sdk_scoped_lock lock;
         const std::string name = std::to_string( n % 25 );
         if ( n % 3 == 0 ) {
            tree.removeClass( "edge", name );
         } else if ( !tree.contents().contains( { "edge", name } ) ) {
            tree.addClass( "edge", name, n );
         } else {
            tree.count( "edge", name, n );
         }
         loop.runOne();
         EXPECT_NE( idle(), streaming() );
      }
      ++slices;
   }
   rpc.join();
   loop.runUntilIdle();
   EXPECT_TRUE( streaming() );
   EXPECT_EQ( last->contents(), tree.contents() );
   EXPECT_FALSE( last->twoNamesForOneKey );
}

} // namespace
} // namespace VeloSdkRpc::test
