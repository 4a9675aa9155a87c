// How the machine lives: its flags and subscriptions, what it holds, and what it traces where.

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MplsSmLifeTest : public MplsSmFixture {
 protected:
   bool listening() const {
      const bool toStatus = state.status->publisher()->hasSubscribers();
      EXPECT_EQ( toStatus, state.groups->publisher()->hasSubscribers() );
      return toStatus;
   }
};

TEST_F( MplsSmLifeTest, IsMadeActive ) {
   EXPECT_TRUE( sm->hasNotificationActive() );
   EXPECT_TRUE( listening() );
   EXPECT_EQ( sm->references(), 1U );
   EXPECT_EQ( sm->mplsHwStatus(), state.status );
   EXPECT_EQ( sm->nexthopGroupMap(), state.groups );
   EXPECT_FALSE( sm->publisher() );
}

TEST_F( MplsSmLifeTest, ItsConstructorSubscribesAlready ) {
   sm = nullptr;
   EXPECT_FALSE( listening() );
   sm = Lumo::makeNode< Sm >( client.callback(), state.status, state.groups );
   EXPECT_TRUE( listening() );
   EXPECT_FALSE( sm->hasNotificationActive() );
   sm->hasNotificationActiveIs( false ); // It is false already.
   EXPECT_TRUE( listening() );
}

TEST_F( MplsSmLifeTest, IsSilentWhileItsNotificationsAreOffAndKeepsWhatIsParked ) {
   state.put( 16, 7 );
   sm->hasNotificationActiveIs( false );
   EXPECT_FALSE( listening() );
   sm->hasNotificationActiveIs( false );
   state.put( 17, 7 );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_EQ( parked( 7 ), 1U );
   sm->hasNotificationActiveIs( true );
   sm->hasNotificationActiveIs( true );
   EXPECT_TRUE( listening() );
   state.name( 7, "leaf" );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
}

TEST_F( MplsSmLifeTest, DoesNothingWhileItIsAZombie ) {
   state.put( 16, 7 );
   sm->quonDoZombieReactors( true );
   EXPECT_TRUE( sm->isZombie() );
   sm->quonDoZombieReactors( true );
   state.put( 17, 7 );
   state.name( 7, "spine" );
   const RouteKey key( 17 );
   sm->mplsHwStatusDispatch( nullptr, nullptr, Mpls::Hardware::Status::kRoute, &key, nullptr );
   const MplsState::Group group = 7;
   sm->nexthopGroupMapDispatch( nullptr, nullptr, NexthopGroup::NexthopGroupMap::kNexthopGroupName,
                                &group, nullptr );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_EQ( parked( 7 ), 1U );
   sm->quonDoZombieReactors( false );
   EXPECT_FALSE( sm->isZombie() );
   state.name( 7, "leaf" );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
}

TEST_F( MplsSmLifeTest, ReactsToTheAttributesThatConcernItOnly ) {
   state.name( 7, "spine" );
   state.put( 16, 7 );
   state.put( 17, 8 );
   client.told.clear();
   const RouteKey key( 16 );
   state.status->publisher()->publishChange( Mpls::Hardware::Status::kRoute + 1, &key );
   const MplsState::Group group = 8;
   state.groups->publisher()->publishChange( NexthopGroup::NexthopGroupMap::kNexthopGroupName + 1,
                                             &group );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_EQ( parked( 8 ), 1U );
}

TEST_F( MplsSmLifeTest, LetsGoOfEverythingWhenItGoes ) {
   auto token = std::make_shared< int >();
   sm = MplsRouteHwProgrammingSmIs( [token]( Route ) {}, state.status, state.groups );
   state.put( 16, 7 );
   const auto entry = sm->fecIdToMplsRouteKeySet( MplsState::fec( 7 ) );
   EXPECT_EQ( state.status->references(), 2U );
   EXPECT_EQ( state.groups->references(), 2U );
   EXPECT_EQ( token.use_count(), 2 );
   sm = nullptr;
   EXPECT_FALSE( listening() );
   EXPECT_EQ( state.status->references(), 1U );
   EXPECT_EQ( state.groups->references(), 1U );
   EXPECT_EQ( token.use_count(), 1 );
   EXPECT_EQ( entry->references(), 1U );
}

TEST_F( MplsSmLifeTest, WhenItsCallbackGoesItIsAZombieWithoutNotifications ) {
   Sm * dying = nullptr;
   int looked = 0;
   auto token = std::shared_ptr< Sm * >( &dying, [&]( Sm ** machine ) {
      ++looked;
      EXPECT_TRUE( ( *machine )->isZombie() );
      EXPECT_FALSE( ( *machine )->hasNotificationActive() );
   } );
   sm = MplsRouteHwProgrammingSmIs( [token]( Route ) {}, state.status, state.groups );
   token = nullptr;
   dying = sm.get();
   sm = nullptr;
   EXPECT_EQ( looked, 1 );
}

TEST_F( MplsSmLifeTest, KnowsItsType ) {
   EXPECT_EQ( sm->typeData().typeName, "VeloSdkRpc::MplsRouteHwProgrammingSm" );
   EXPECT_THAT( sm->typeData().attributeNames,
                ElementsAre( "onMplsRouteHwProgrammingUpdate", "mplsHwStatus", "nexthopGroupMap",
                             "fecIdToMplsRouteKeySet" ) );
}

TEST_F( MplsSmLifeTest, TracesWhereItIs ) {
   class Locations final : public Lumo::TraceSink {
    public:
      void emit( const Lumo::TraceRecord & record ) override {
         EXPECT_STREQ( record.where.file_name(), "VeloSdkRpc/MplsRouteHwProgrammingSm" );
         lines.push_back( record.where.line() );
      }
      std::vector< unsigned > lines;
   } locations;
   const Lumo::TraceLevelsScope levels;
   Lumo::traceLevelsIs( "MplsRouteHwProgrammingSm", Lumo::traceLevels( 7, 8 ) );
   Lumo::TraceSink * const before = Lumo::traceSinkIs( &locations );
   state.put( 16, 7 );
   Lumo::traceSinkIs( before );
   ASSERT_EQ( locations.lines.size(), 3U ); // A handler, a judgement within it, and what it says.
   EXPECT_GT( locations.lines[0], 0U );
   EXPECT_LT( locations.lines[0], locations.lines[1] );
   EXPECT_LT( locations.lines[1], locations.lines[2] );
}

TEST_F( MplsSmLifeTest, EachLevelIsTracedOnItsOwnAndDecidesNothing ) {
   const auto tracedAt = [this]( int level, std::uint32_t label ) {
      const Lumo::CapturingTraceSink traces( "MplsRouteHwProgrammingSm",
                                             Lumo::traceLevels( level ) );
      state.put( label, 7 );
      state.touch( label );
      state.name( 7, "spine" );
      state.unname( 7 );
      return traces.messages.size();
   };
   EXPECT_EQ( tracedAt( 7, 16 ), 6U );
   EXPECT_EQ( tracedAt( 8, 17 ), 5U );
   EXPECT_EQ( tracedAt( 9, 18 ), 0U );
   EXPECT_THAT( client.labels(), ElementsAre( 16, 17, 18 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
