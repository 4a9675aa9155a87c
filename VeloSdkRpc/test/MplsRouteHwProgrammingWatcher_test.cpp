// Mounting, starting and stopping; and what a callback may do to the watcher.

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/MplsRouteHwProgrammingWatcher.h"
#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class MplsWatcherTest : public testing::Test {
 protected:
   MplsWatcherTest() {
      entities->entityIs( kPath, state.status );
      state.name( 7, "spine" );
   }

   static inline const Lumo::String kPath = "routing/hardware/mpls/status";

   MplsRouteHwProgrammingWatcher & watcher() { return *watcher_; }
   void destroyWatcher() { watcher_.reset(); }
   void mount() { mounts.mountAll(); }
   void mountAndStart() {
      mount();
      watcher().startWatching( client.callback() );
   }
   bool somebodyListens() const {
      return state.status->publisher()->hasSubscribers() ||
             state.groups->publisher()->hasSubscribers();
   }

   MplsState state;
   MplsClient client, other;
   /// Where the agent keeps its map.
   Lumo::Ptr< const NexthopGroup::NexthopGroupMap > groups = state.groups;
   const Lumo::Ptr< Keldb::EntityManager > entities = Lumo::makeNode< Keldb::EntityManager >();
   velo::mount_mgr mounts{ entities, Lumo::makeNode< QuonSharedMem::EntityManager >() };

 private:
   std::unique_ptr< MplsRouteHwProgrammingWatcher > watcher_ =
      std::make_unique< MplsRouteHwProgrammingWatcher >( &mounts, &groups );
};

// Mounting ----------------------------------------------------------------------------------------

TEST_F( MplsWatcherTest, AsksForTheStatusInTheStateDatabaseForReadingAndForNothingElse ) {
   const auto group = Lumo::makeNode< Keldb::MountGroup >();
   const auto sharedGroup = Lumo::makeNode< QuonSharedMem::MountGroup >();
   watcher().doMounts( group, sharedGroup );
   Keldb::Mount expected( "routing/hardware/mpls/status", "Mpls::Hardware::Status" );
   expected.handleFlags( "r" );
   EXPECT_THAT( group->mounts(), ElementsAre( expected ) );
   EXPECT_THAT( sharedGroup->mounts(), IsEmpty() );
}

TEST_F( MplsWatcherTest, HasNothingBeforeTheMountsAndTheStatusAfterwards ) {
   EXPECT_FALSE( watcher().status() );
   EXPECT_FALSE( watcher().sm() );
   mount();
   EXPECT_EQ( watcher().status(), state.status );
   EXPECT_FALSE( watcher().sm() );
   EXPECT_FALSE( somebodyListens() );
}

TEST_F( MplsWatcherTest, AnEntityOfAnotherTypeIsAsGoodAsNone ) {
   const auto impostor = Lumo::makeNode< NexthopGroup::NexthopGroupMap >();
   entities->entityIs( kPath, impostor );
   mountAndStart();
   EXPECT_FALSE( watcher().status() );
   EXPECT_EQ( impostor->references(), 2U ); // Ours and the entity manager's.
   state.put( 16, 7 );
   state.name( 7, "leaf" );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsWatcherTest, AMissingEntityLeavesItWithoutAStatus ) {
   entities->entityIs( kPath, nullptr );
   mountAndStart();
   EXPECT_FALSE( watcher().status() );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsWatcherTest, ANewlyMountedStatusTakesThePlaceOfTheOneBefore ) {
   mount();
   const auto newer = Lumo::makeNode< Mpls::Hardware::Status >();
   entities->entityIs( kPath, newer );
   watcher().onMountsComplete( entities, nullptr );
   EXPECT_EQ( watcher().status(), newer );
   EXPECT_EQ( state.status->references(), 1U );
}

TEST( MplsWatcherDeathTest, NeedsASourceOfTheMap ) {
   EXPECT_DEATH( MplsRouteHwProgrammingWatcher( nullptr, nullptr ), "nexthopGroupMap" );
}

// Starting and stopping ---------------------------------------------------------------------------

TEST_F( MplsWatcherTest, TellsAcknowledgedRoutesOverNamedGroupsWhileItWatches ) {
   mount();
   state.put( 15, 7 );
   watcher().startWatching( client.callback() );
   state.put( 16, 7 );
   state.put( 17, 8 );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
   state.name( 8, "leaf" );
   EXPECT_THAT( client.labels(), ElementsAre( 16, 17 ) );
   watcher().stopWatching();
   EXPECT_FALSE( watcher().sm() );
   EXPECT_FALSE( somebodyListens() );
   state.put( 18, 7 );
   state.put( 16, 7, 2 );
   EXPECT_THAT( client.labels(), ElementsAre( 16, 17 ) );
}

TEST_F( MplsWatcherTest, StoppingWithoutHavingStartedIsHarmless ) {
   watcher().stopWatching();
   mount();
   watcher().stopWatching();
   watcher().startWatching( client.callback() );
   watcher().stopWatching();
   watcher().stopWatching();
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsWatcherTest, ASecondStartReplacesTheCallback ) {
   mountAndStart();
   state.put( 15, 8 ); // Waits on behalf of the first.
   watcher().startWatching( other.callback() );
   state.put( 16, 7 );
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( other.labels(), ElementsAre( 16 ) );
   EXPECT_EQ( watcher().sm()->references(), 1U );
   EXPECT_EQ( state.status->references(),
              4U ); // Ours, the database's, the watcher's, one machine's.
}

TEST_F( MplsWatcherTest, CanBeStartedAgainAfterAStop ) {
   mountAndStart();
   watcher().stopWatching();
   watcher().startWatching( other.callback() );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( other.labels(), ElementsAre( 16 ) );
}

TEST_F( MplsWatcherTest, LooksAtTheAgentsMapWhenItStarts ) {
   groups = nullptr;
   mountAndStart();
   EXPECT_FALSE( watcher().sm()->nexthopGroupMap() );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
   const auto newer = Lumo::makeNode< NexthopGroup::NexthopGroupMap >();
   newer->nexthopGroupNameIs( 8, "leaf" );
   groups = newer;
   state.put( 17, 8 );
   EXPECT_THAT( client.told, IsEmpty() );
   watcher().startWatching( client.callback() );
   state.put( 18, 8 );
   EXPECT_THAT( client.labels(), ElementsAre( 18 ) );
}

TEST_F( MplsWatcherTest, LetsGoOfEverythingWhenItGoes ) {
   const auto witness = std::make_shared< int >();
   mount();
   watcher().startWatching( [witness]( Route ) {} );
   destroyWatcher();
   EXPECT_EQ( witness.use_count(), 1 );
   EXPECT_EQ( state.status->references(), 2U ); // Ours and the database's.
   EXPECT_EQ( state.groups->references(), 2U ); // Ours and the agent's.
   EXPECT_FALSE( somebodyListens() );
}

// From inside a call ------------------------------------------------------------------------------

TEST_F( MplsWatcherTest, ACallbackMayStopTheWatcherAndIsCalledNoMore ) {
   mountAndStart();
   for ( std::uint32_t label : { 16, 17, 18 } ) { state.put( label, 8 ); }
   client.then = [this]( const Route & ) {
      watcher().stopWatching();
      state.put( 20, 7 );
   };
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( somebodyListens() );
}

TEST_F( MplsWatcherTest, ACallbackMayPutAnotherInItsPlace ) {
   mountAndStart();
   for ( std::uint32_t label : { 16, 17, 18 } ) { state.put( label, 8 ); }
   client.then = [this]( const Route & ) {
      watcher().startWatching( other.callback() );
      state.put( 20, 7 );
   };
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_THAT( other.labels(), ElementsAre( 20 ) );
   state.put( 21, 7 );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_THAT( other.labels(), ElementsAre( 20, 21 ) );
}

TEST_F( MplsWatcherTest, ACallbackMayDestroyTheWatcher ) {
   mountAndStart();
   state.put( 16, 8 );
   state.put( 17, 8 );
   client.then = [this]( const Route & ) { destroyWatcher(); };
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( somebodyListens() );
}

/// Does something when the last copy of it is destroyed.
OnMplsRouteHwProgrammingUpdate atItsEnd( std::function< void() > act ) {
   const std::shared_ptr< void > last( nullptr, [act]( void * ) { act(); } );
   return [last]( Route ) {};
}

TEST_F( MplsWatcherTest, TheEndOfACallbackMayStartAnother ) {
   mount();
   watcher().startWatching( atItsEnd( [this] { watcher().startWatching( client.callback() ); } ) );
   watcher().stopWatching();
   state.put( 16, 7 );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
}

TEST_F( MplsWatcherTest, TheEndOfACallbackMayDestroyTheWatcher ) {
   mount();
   watcher().startWatching( atItsEnd( [this] { destroyWatcher(); } ) );
   watcher().startWatching( client.callback() );
   EXPECT_FALSE( somebodyListens() );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
}

} // namespace
} // namespace VeloSdkRpc::test
