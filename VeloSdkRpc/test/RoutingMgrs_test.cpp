// What each routing configuration manager mounts and writes. The resync bracket, which they have in
// common, is in Resync_test.cpp.

#include "VeloSdkRpc/test/RoutingMgrs.h"

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/Dir.h"
#include "Quon/EntityWatcher.h"
#include "Quon/Exceptions.h"

namespace VeloSdkRpc::test {
namespace {

using Routing::Bgp::BgpLinkWeightSdkOverride;
using Routing::Fib::FibOverrideConfig;
using Routing::Fib::FibOverrideVia;
using Routing::Fib::FibOverrideViaMatcher;
using testing::ElementsAre;
using testing::IsEmpty;

/// What a handler asks for when it is asked.
struct Asked {
   explicit Asked( velo::mount_handler & handler ) { handler.doMounts( group, sharedGroup ); }
   ~Asked() { EXPECT_THAT( sharedGroup->mounts(), IsEmpty() ); }
   Asked( const Asked & ) = delete;
   Asked & operator=( const Asked & ) = delete;

   const Lumo::Ptr< Keldb::MountGroup > group = Lumo::makeNode< Keldb::MountGroup >();
   const Lumo::Ptr< QuonSharedMem::MountGroup > sharedGroup =
      Lumo::makeNode< QuonSharedMem::MountGroup >();
};

/// Tells a handler that its mounts are complete, `entities` being all there is.
void tellComplete( velo::mount_handler & handler,
                   const Lumo::Ptr< Keldb::EntityManager > & entities ) {
   handler.onMountsComplete( entities, Lumo::makeNode< QuonSharedMem::EntityManager >() );
}

class BgpLinkWeightMgr : public testing::Test {
 protected:
   static inline const Lumo::String kPath = "routing/bgp/sdk/linkweight";
   static inline const Lumo::String kName = "bgpLinkWeightSdkOverride";

   Lumo::Ptr< Quon::Dir > directory() const {
      return Quon::entityCast< Quon::Dir >( database.entities->getEntity( kPath ) );
   }

   StateDatabase database;
   bgp_link_weight_mgr mgr{ &database.mounts };
};

TEST_F( BgpLinkWeightMgr, AsksForItsDirectoryForWriting ) {
   const Asked asked( mgr );
   ASSERT_EQ( asked.group->mounts().size(), 1U );
   const Keldb::Mount & mount = asked.group->mounts()[0];
   EXPECT_EQ( mount.path(), "routing/bgp/sdk/linkweight" );
   EXPECT_EQ( mount.entityType(), "Quon::Dir" );
   EXPECT_TRUE( mount.flags().has( Keldb::MountFlag::write ) );
   EXPECT_TRUE( mount.flags().has( Keldb::MountFlag::initialize ) );
   EXPECT_FALSE( mount.flags().has( Keldb::MountFlag::read ) );
}

TEST_F( BgpLinkWeightMgr, HasNoWeightsBeforeTheMountsAreComplete ) {
   EXPECT_EQ( mgr.override(), nullptr );
}

TEST_F( BgpLinkWeightMgr, MakesTheWeightsInItsDirectory ) {
   database.mounts.mountAll();
   ASSERT_TRUE( directory() );
   const auto * made = directory()->entity()[kName];
   ASSERT_TRUE( made );
   EXPECT_EQ( made->value(), mgr.override() );
   EXPECT_EQ( mgr.override()->typeData().typeName, "Routing::Bgp::BgpLinkWeightSdkOverride" );
}

TEST_F( BgpLinkWeightMgr, TakesTheWeightsThatAreThere ) {
   const auto present = Lumo::makeNode< Quon::Dir >();
   const auto weights = present->createEntity( BgpLinkWeightSdkOverride::kTypeName, kName );
   database.entities->entityIs( kPath, present );
   database.mounts.mountAll();
   EXPECT_EQ( mgr.override(), weights );
}

TEST_F( BgpLinkWeightMgr, HasNoWeightsWithoutADirectory ) {
   tellComplete( mgr, Lumo::makeNode< Keldb::EntityManager >() );
   EXPECT_EQ( mgr.override(), nullptr );
   database.entities->entityIs( kPath, Lumo::makeNode< FibOverrideConfig >() );
   database.mounts.mountAll();
   EXPECT_EQ( mgr.override(), nullptr );
}

TEST_F( BgpLinkWeightMgr, LetsGoOfTheWeightsThatItHadBefore ) {
   database.mounts.mountAll();
   const auto before = mgr.override();
   EXPECT_EQ( before->references(), 3U ); // the directory's, the manager's and this one
   tellComplete( mgr, Lumo::makeNode< Keldb::EntityManager >() );
   EXPECT_EQ( before->references(), 2U );
}

TEST_F( BgpLinkWeightMgr, SomethingElseUnderTheNameOfTheWeightsCountsAsAbsentAndStopsNobody ) {
   const auto present = Lumo::makeNode< Quon::Dir >();
   const auto somethingElse = present->createEntity( FibOverrideConfig::kTypeName, kName );
   database.entities->entityIs( kPath, present );
   const fib_override_mgr next( &database.mounts, "te" );
   database.keepsFibOverrideConfigAt( next.getMountPath() );
   database.mounts.mountAll();
   EXPECT_EQ( mgr.override(), nullptr );
   EXPECT_EQ( somethingElse->references(), 2U ); // the directory's and this one
   EXPECT_NE( next.config(), nullptr );
}

TEST_F( BgpLinkWeightMgr, AnotherDirectoryTakesThePlaceOfTheOneBefore ) {
   database.mounts.mountAll();
   const auto before = mgr.override();
   const auto others = Lumo::makeNode< Keldb::EntityManager >();
   others->entityIs( kPath, Lumo::makeNode< Quon::Dir >() );
   tellComplete( mgr, others );
   ASSERT_NE( mgr.override(), nullptr );
   EXPECT_NE( mgr.override(), before );
   EXPECT_EQ( before->references(), 2U ); // the directory's and this one
}

TEST_F( BgpLinkWeightMgr, WritesEveryInterfaceAndWeightAsItIs ) {
   database.mounts.mountAll();
   for ( const std::uint64_t n : { 0ULL, 1ULL << 63, ~0ULL } ) {
      for ( const std::uint32_t weight : { 0U, 1U, ~0U } ) {
         mgr.link_weight_set( velo::intf_id_t( n ), weight );
         const auto * entry = mgr.override()->bgpLinkWeightSdkOverrideEntry()[Ipnet::IntfId( n )];
         ASSERT_TRUE( entry );
         EXPECT_EQ( entry->value().weight(), weight );
      }
   }
   EXPECT_EQ( mgr.override()->bgpLinkWeightSdkOverrideEntry().size(), 3U );
}

TEST_F( BgpLinkWeightMgr, TheHashOfAnInterfaceIsTheLowHalfOfItsOwn ) {
   const velo::intf_id_t intf( 0x0123456789abcdef );
   EXPECT_EQ( bgp_link_weight_mgr::intf_id_hash()( intf ), intf.hash() & 0xffffffff );
}

class FibOverrideMgr : public testing::Test {
 protected:
   static FibOverrideVia via( std::uint32_t weight ) {
      return FibOverrideVia(
         FibOverrideViaMatcher::ofRoute( Ipnet::IpPrefix( "10.0.0.0/8" ),
                                         Routing::Fib::Via( Ipnet::IpAddr( "192.0.2.1" ) ) ),
         weight );
   }
   void mount() {
      database.keepsFibOverrideConfigAt( "routing/rib/fibOverride/config/te" );
      database.keepsFibOverrideConfigAt( "routing/rib/fibOverride/config/bulk" );
      database.mounts.mountAll();
   }

   StateDatabase database;
   std::unique_ptr< fib_override_mgr > mgr =
      std::make_unique< fib_override_mgr >( &database.mounts, "te" );
   fib_override_mgr bulk{ &database.mounts, "bulk" };
};

TEST_F( FibOverrideMgr, ItsPathIsNamedLikeItsMountPoint ) {
   EXPECT_EQ( mgr->getMountPath(), "routing/rib/fibOverride/config/te" );
   EXPECT_EQ( bulk.getMountPath(), "routing/rib/fibOverride/config/bulk" );
}

TEST_F( FibOverrideMgr, AsksForItsPathAlone ) {
   const Asked asked( *mgr );
   EXPECT_THAT( asked.group->mounts(),
                ElementsAre( Keldb::Mount( "routing/rib/fibOverride/config/te" ) ) );
}

TEST_F( FibOverrideMgr, CannotBeMountedWhereTheDatabaseKeepsNoConfiguration ) {
   EXPECT_THROW( database.mounts.mountAll(), velo::mount_protocol_error );
   EXPECT_EQ( mgr->config(), nullptr );
}

TEST_F( FibOverrideMgr, TakesTheConfigurationThatIsThereAndMakesNone ) {
   const auto present = Lumo::makeNode< FibOverrideConfig >();
   database.entities->entityIs( mgr->getMountPath(), present );
   tellComplete( *mgr, database.entities );
   EXPECT_EQ( mgr->config(), present );
   EXPECT_EQ( present->references(), 3U ); // the database's, the manager's and this one
   tellComplete( *mgr, Lumo::makeNode< Keldb::EntityManager >() );
   EXPECT_EQ( mgr->config(), nullptr );
   EXPECT_EQ( present->references(), 2U );
}

TEST_F( FibOverrideMgr, AnyOtherTypeCountsAsAbsent ) {
   database.entities->entityIs( mgr->getMountPath(), Lumo::makeNode< Quon::Dir >() );
   mount();
   EXPECT_EQ( mgr->config(), nullptr );
   EXPECT_TRUE( bulk.config() );
}

TEST_F( FibOverrideMgr, TwoOfThemWriteToTwoConfigurations ) {
   mount();
   ASSERT_TRUE( mgr->config() && bulk.config() );
   EXPECT_NE( mgr->config(), bulk.config() );
   mgr->via_override_set( via( 1 ) );
   mgr->default_ucmp_weight_set( 5 );
   EXPECT_EQ( mgr->config()->viaOverride().size(), 1U );
   EXPECT_EQ( bulk.config()->viaOverride().size(), 0U );
   EXPECT_FALSE( bulk.default_ucmp_weight() );
}

TEST_F( FibOverrideMgr, TwoOfThemCannotHaveOneName ) {
   EXPECT_THROW( fib_override_mgr( &database.mounts, "te" ), velo::mount_protocol_error );
}

TEST_F( FibOverrideMgr, ItsNameIsOneStepOfAPath ) {
   for ( const char * name : { "", "a/b", "/" } ) {
      EXPECT_THROW( fib_override_mgr( &database.mounts, name ), Quon::RangeException ) << name;
   }
}

TEST_F( FibOverrideMgr, HasAnOrdinaryNameWhereNoneIsGiven ) {
   const fib_override_mgr nameless( &database.mounts );
   EXPECT_EQ( nameless.getMountPath(), "routing/rib/fibOverride/config/sdk" );
   EXPECT_THROW( fib_override_mgr( &database.mounts ), velo::mount_protocol_error );
}

TEST_F( FibOverrideMgr, ABracketMayBeBegunBeforeTheMountsAndMisuseIsAnErrorThen ) {
   EXPECT_THROW( mgr->via_override_resync_complete(), velo::configuration_error );
   mgr->via_override_resync_init();
   mount();
   mgr->via_override_set( via( 1 ) );
   mgr->via_override_resync_complete();
   EXPECT_EQ( mgr->config()->viaOverride().size(), 1U );
}

TEST_F( FibOverrideMgr, TheDefaultWeightIsTheConfigurationsWhoeverSetIt ) {
   mount();
   mgr->config()->ucmpWeightDefaultIs( 9U );
   EXPECT_EQ( mgr->default_ucmp_weight(), Quon::Optional< std::uint32_t >( 9 ) );
   mgr->config()->ucmpWeightDefaultIs( {} );
   EXPECT_EQ( mgr->default_ucmp_weight(), Quon::Optional< std::uint32_t >() );
}

TEST_F( FibOverrideMgr, TheDefaultWeightIsAbsentUntilItIsSet ) {
   mount();
   EXPECT_EQ( mgr->default_ucmp_weight(), Quon::Optional< std::uint32_t >() );
   for ( const std::uint32_t weight : { 0U, 7U, ~0U, 0U } ) {
      mgr->default_ucmp_weight_set( weight );
      EXPECT_EQ( mgr->default_ucmp_weight(), Quon::Optional< std::uint32_t >( weight ) );
   }
}

TEST_F( FibOverrideMgr, AResyncLeavesTheDefaultWeightAlone ) {
   mount();
   mgr->default_ucmp_weight_set( 7 );
   mgr->via_override_set( via( 1 ) );
   mgr->via_override_resync_init();
   mgr->via_override_resync_complete();
   EXPECT_EQ( mgr->config()->viaOverride().size(), 0U );
   EXPECT_EQ( mgr->default_ucmp_weight(), Quon::Optional< std::uint32_t >( 7 ) );
}

TEST_F( FibOverrideMgr, WhatTheConfigurationRefusesTheClientLearns ) {
   mount();
   EXPECT_THROW( mgr->via_override_set( FibOverrideVia() ), Quon::RangeException );
   EXPECT_EQ( mgr->config()->viaOverride().size(), 0U );
}

TEST_F( FibOverrideMgr, WhatTheConfigurationRefusesCountsAsSentNevertheless ) {
   mount();
   mgr->via_override_set( via( 1 ) );
   mgr->via_override_resync_init();
   const FibOverrideVia ofNothing( via( 1 ).matcher() );
   EXPECT_THROW( mgr->via_override_set( ofNothing ), Quon::RangeException );
   mgr->via_override_resync_complete();
   EXPECT_EQ( mgr->config()->viaOverride().size(), 1U );
}

TEST_F( FibOverrideMgr, TheHashOfAMatcherIsTheLowHalfOfItsOwn ) {
   const FibOverrideViaMatcher matcher = via( 1 ).matcher();
   EXPECT_EQ( fib_override_mgr::ViaMatcherHash()( matcher ), matcher.hash( 0 ) & 0xffffffff );
}

} // namespace
} // namespace VeloSdkRpc::test
