// The managers as the agent's clients will see them: constructed and mounted by the agent and
// called on its event loop, over state found where others find it, by its path.

#include "agent/Managers.h"

#include "Quon/Dir.h"
#include "agent/EventLoop.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace VeloAgent {

namespace {

using Routing::Bgp::BgpLinkWeightSdkOverride;
using Routing::Fib::FibOverrideConfig;
using Routing::Fib::FibOverrideVia;
using Routing::Fib::FibOverrideViaMatcher;

FibOverrideViaMatcher matcher( const char * nexthop ) {
   return FibOverrideViaMatcher::ofRoute( Ipnet::IpPrefix( "10.0.0.0/8" ),
                                          Routing::Fib::Via( Ipnet::IpAddr( nexthop ) ) );
}

class MountedManagers : public testing::Test {
 protected:
   MountedManagers() {
      onTheLoop( [this] { managers.mount(); } );
   }

   /// Does `work` as a service of the agent would.
   template< typename Work >
   void onTheLoop( Work work ) {
      EventLoop loop( Lumo::makeNode< Oru::TaskScheduler >() );
      loop.post( [&] {
         work();
         loop.stop();
      } );
      loop.run();
   }

   Lumo::Ptr< const BgpLinkWeightSdkOverride > linkWeights() const {
      const auto directory = Quon::entityCast< Quon::Dir >(
         managers.entities().getEntity( "routing/bgp/sdk/linkweight" ) );
      const auto * node = directory->entity()[Lumo::String( "bgpLinkWeightSdkOverride" )];
      return Quon::entityCast< const BgpLinkWeightSdkOverride >( node->value() );
   }
   Lumo::Ptr< FibOverrideConfig > fibOverrides() const {
      return Quon::entityCast< FibOverrideConfig >(
         managers.entities().getEntity( "routing/rib/fibOverride/config/sdk" ) );
   }
   /// 0 if there is none.
   std::uint32_t linkWeight( std::uint64_t intf ) const {
      const auto * entry = linkWeights()->bgpLinkWeightSdkOverrideEntry()[Ipnet::IntfId( intf )];
      return entry ? entry->value().weight() : 0;
   }
   std::uint32_t viaWeight( const char * nexthop ) const {
      const auto * via = fibOverrides()->viaOverride()[matcher( nexthop )];
      return via ? *via->value().weight() : 0;
   }

   Managers managers{ Lumo::makeNode< Managers::PbrCountersRoot >() };
};

TEST_F( MountedManagers, WriteIntoTheMountedConfiguration ) {
   onTheLoop( [this] {
      managers.linkWeights().link_weight_set( velo::intf_id_t( 1 ), 10 );
      managers.linkWeights().link_weight_set( velo::intf_id_t( 2 ), 20 );
      managers.linkWeights().link_weight_del( velo::intf_id_t( 2 ) );
      managers.fibOverrides().via_override_set( FibOverrideVia( matcher( "192.0.2.1" ), 3 ) );
      managers.fibOverrides().via_override_set( FibOverrideVia( matcher( "192.0.2.2" ), 4 ) );
      managers.fibOverrides().via_override_del( matcher( "192.0.2.2" ) );
      managers.fibOverrides().default_ucmp_weight_set( 5 );
   } );
   EXPECT_EQ( linkWeight( 1 ), 10U );
   EXPECT_EQ( linkWeight( 2 ), 0U );
   EXPECT_EQ( viaWeight( "192.0.2.1" ), 3U );
   EXPECT_EQ( viaWeight( "192.0.2.2" ), 0U );
   EXPECT_EQ( fibOverrides()->ucmpWeightDefault(), Quon::Optional< std::uint32_t >( 5 ) );
}

TEST_F( MountedManagers, DeleteAtTheEndOfAResyncWhatWasNotSentAgain ) {
   onTheLoop( [this] {
      for ( const std::uint64_t intf : { 1, 2, 3 } ) {
         managers.linkWeights().link_weight_set( velo::intf_id_t( intf ), 10 );
      }
      for ( const char * nexthop : { "192.0.2.1", "192.0.2.2" } ) {
         managers.fibOverrides().via_override_set( FibOverrideVia( matcher( nexthop ), 3 ) );
      }
      managers.linkWeights().link_weight_resync_init();
      managers.fibOverrides().via_override_resync_init();
   } );
   // A client sends in as many turns of the loop as it likes.
   onTheLoop( [this] { managers.linkWeights().link_weight_set( velo::intf_id_t( 2 ), 11 ); } );
   onTheLoop( [this] {
      managers.fibOverrides().via_override_set( FibOverrideVia( matcher( "192.0.2.2" ), 4 ) );
   } );
   onTheLoop( [this] {
      managers.linkWeights().link_weight_resync_complete();
      managers.fibOverrides().via_override_resync_complete();
   } );
   EXPECT_EQ( linkWeights()->bgpLinkWeightSdkOverrideEntry().size(), 1U );
   EXPECT_EQ( linkWeight( 2 ), 11U );
   EXPECT_EQ( fibOverrides()->viaOverride().size(), 1U );
   EXPECT_EQ( viaWeight( "192.0.2.2" ), 4U );
}

TEST_F( MountedManagers, TellAClientOfItsMisuse ) {
   onTheLoop( [this] {
      EXPECT_THROW( managers.linkWeights().link_weight_resync_complete(), velo::error );
      EXPECT_THROW( managers.fibOverrides().via_override_resync_complete(),
                    velo::configuration_error );
   } );
}

TEST_F( MountedManagers, TellAClientOfMplsRoutesOverNamedGroupsWhileItWatches ) {
   using Mpls::Hardware::Route;
   using Plink::Fib::FecId;
   std::vector< std::uint32_t > told;
   const auto acknowledged = [this]( std::uint32_t label, std::uint32_t group ) {
      const Route route(
         Mpls::RouteKey( label ),
         Mpls::Hardware::AckInfo( FecId::nexthopGroupIdToFecId( group ), 1, 1, 0 ) );
      onTheLoop( [&] {
         const auto status = Quon::entityCast< Mpls::Hardware::Status >(
            managers.entities().getEntity( "routing/hardware/mpls/status" ) );
         status->routeIs( route.key(), route );
      } );
   };
   const auto named = [this]( std::uint32_t group ) {
      onTheLoop( [&] { managers.nexthopGroups().nexthopGroupNameIs( group, "spine" ); } );
   };

   onTheLoop( [&] {
      managers.mplsRoutes().startWatching(
         [&told]( const Route & route ) { told.push_back( route.key().label() ); } );
   } );
   named( 1 );
   acknowledged( 16, 1 );
   acknowledged( 17, 2 );
   EXPECT_THAT( told, testing::ElementsAre( 16 ) );
   named( 2 );
   EXPECT_THAT( told, testing::ElementsAre( 16, 17 ) );
   onTheLoop( [this] { managers.mplsRoutes().stopWatching(); } );
   acknowledged( 18, 1 );
   EXPECT_THAT( told, testing::ElementsAre( 16, 17 ) );
}

TEST_F( MountedManagers, AreMountedOnce ) {
   EXPECT_THROW( managers.mount(), velo::mount_protocol_error );
}

} // namespace

} // namespace VeloAgent
