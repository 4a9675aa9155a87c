#include "Routing/Bgp/Bgp.h"

#include <cstdint>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/EntityTypes.h"
#include "Quon/EntityWatcher.h"

namespace Routing::Bgp::test {
namespace {

using testing::ElementsAre;

using Entry = BgpLinkWeightSdkOverrideEntry;
constexpr short kEntry = BgpLinkWeightSdkOverride::kBgpLinkWeightSdkOverrideEntry;

TEST( LinkWeightEntry, IsAWeightAndNothingElse ) {
   EXPECT_EQ( Entry( 5 ).weight(), 5U );
   EXPECT_EQ( Entry( 5 ), Entry( 5 ) );
   EXPECT_LT( Entry( 5 ), Entry( 6 ) );
   EXPECT_NE( Entry( 5 ).hash( 1 ), Entry( 6 ).hash( 1 ) );
   EXPECT_NE( Entry( 5 ).hash( 1 ), Entry( 5 ).hash( 2 ) );
   EXPECT_EQ( testing::PrintToString( Entry( 5 ) ),
              "Value('Routing::Bgp::BgpLinkWeightSdkOverrideEntry', ** {'weight': 5})" );
}

RC_GTEST_PROP( LinkWeightEntry, ComesBackFromItsText, ( std::uint32_t weight ) ) {
   RC_ASSERT( Quon::fromText< Entry >( Quon::text( Entry( weight ) ) ) == Entry( weight ) );
}

class LinkWeightsTest : public testing::Test {
 protected:
   /// 0 if there is none.
   std::uint32_t weightOf( std::uint64_t intf ) const {
      const auto * entry = weights->bgpLinkWeightSdkOverrideEntry()[Ipnet::IntfId( intf )];
      return entry ? entry->value().weight() : 0;
   }
   void set( std::uint64_t intf, std::uint32_t weight ) {
      weights->bgpLinkWeightSdkOverrideEntryIs( Ipnet::IntfId( intf ), Entry( weight ) );
   }

   const Lumo::Ptr< BgpLinkWeightSdkOverride > weights =
      Lumo::makeNode< BgpLinkWeightSdkOverride >();
};

TEST_F( LinkWeightsTest, AreKeptByInterface ) {
   set( 1, 10 );
   set( 2, 20 );
   set( 1, 11 );
   EXPECT_EQ( weightOf( 1 ), 11U );
   EXPECT_EQ( weightOf( 2 ), 20U );
   weights->bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId( 1 ) );
   weights->bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId( 1 ) );
   EXPECT_EQ( weightOf( 1 ), 0U );
   weights->bgpLinkWeightSdkOverrideEntryDelAll();
   EXPECT_TRUE( weights->bgpLinkWeightSdkOverrideEntry().empty() );
}

TEST_F( LinkWeightsTest, EveryChangeIsPublishedAndNothingElse ) {
   Quon::test::EntityWatcher watcher( *weights );
   set( 1, 10 );
   set( 1, 10 );
   EXPECT_THAT( watcher.told, ElementsAre( kEntry ) );
   watcher.then = []( const Lumo::Notification & change ) {
      EXPECT_EQ( *static_cast< const Ipnet::IntfId * >( change.key ), Ipnet::IntfId( 1 ) );
      EXPECT_EQ( *static_cast< const Entry * >( change.oldValue ), Entry( 10 ) );
      EXPECT_EQ( *static_cast< const Entry * >( change.newValue ), Entry( 11 ) );
   };
   set( 1, 11 );
   watcher.then = []( const Lumo::Notification & change ) {
      EXPECT_EQ( *static_cast< const Entry * >( change.oldValue ), Entry( 11 ) );
      EXPECT_EQ( change.newValue, nullptr );
   };
   weights->bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId( 1 ) );
   weights->bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId( 1 ) );
   EXPECT_THAT( watcher.told, ElementsAre( kEntry, kEntry, kEntry ) );
}

TEST_F( LinkWeightsTest, AnEqualWeightIsNoChangeForAPassEither ) {
   set( 1, 10 );
   const auto version = weights->bgpLinkWeightSdkOverrideEntry().version();
   set( 1, 10 );
   EXPECT_EQ( weights->bgpLinkWeightSdkOverrideEntry().version(), version );
}

TEST_F( LinkWeightsTest, CanBeMadeByName ) {
   const auto made = Quon::createEntity( "Routing::Bgp::BgpLinkWeightSdkOverride" );
   EXPECT_TRUE( Quon::entityCast< BgpLinkWeightSdkOverride >( made ) );
   EXPECT_EQ( made->typeData().typeName, "Routing::Bgp::BgpLinkWeightSdkOverride" );
   EXPECT_THAT( made->typeData().attributeNames, ElementsAre( "bgpLinkWeightSdkOverrideEntry" ) );
}

} // namespace
} // namespace Routing::Bgp::test
