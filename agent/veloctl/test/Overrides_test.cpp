#include "agent/veloctl/Addresses.h"
#include "agent/veloctl/test/TemporaryFile.h"
#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/fib_overrides.pb.h"

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;
using testing::HasSubstr;

/// An agent with some overrides that keeps what it was asked.
class OverridesTest : public VeloctlTest {
 protected:
   void SetUp() override {
      answer< FibOverridesSetRequest, FibOverridesSetResponse >(
         "FibOverrides/Set", [this]( const FibOverridesSetRequest & request ) {
            setRequest = request;
            return FibOverridesSetResponse();
         } );
      answer< FibOverridesDeleteRequest, FibOverridesDeleteResponse >(
         "FibOverrides/Delete", [this]( const FibOverridesDeleteRequest & request ) {
            deleteRequest = request;
            FibOverridesDeleteResponse response;
            response.set_deleted( 1 );
            return response;
         } );
      answer< FibOverridesListRequest, FibOverridesListResponse >(
         "FibOverrides/List", [this]( const FibOverridesListRequest & ) { return present; } );
      answer< GetDefaultUcmpWeightRequest, GetDefaultUcmpWeightResponse >(
         "FibOverrides/GetDefaultUcmpWeight", [this]( const GetDefaultUcmpWeightRequest & ) {
            GetDefaultUcmpWeightResponse response;
            if ( defaultWeight ) { response.set_weight( *defaultWeight ); }
            return response;
         } );
      answer< SetDefaultUcmpWeightRequest, SetDefaultUcmpWeightResponse >(
         "FibOverrides/SetDefaultUcmpWeight",
         [this]( const SetDefaultUcmpWeightRequest & request ) {
            defaultWeight = request.weight();
            return SetDefaultUcmpWeightResponse();
         } );
   }

   void agentHas( const std::string & vrf, const std::string & prefix, const std::string & nextHop,
                  std::uint32_t weight ) {
      FibOverride & item = *present.add_overrides();
      item.mutable_matcher()->set_vrf( vrf );
      item.mutable_matcher()->set_prefix( prefix );
      item.mutable_matcher()->mutable_via()->set_next_hop( nextHop );
      item.set_weight( weight );
   }

   FibOverridesListResponse present;
   FibOverridesSetRequest setRequest;
   FibOverridesDeleteRequest deleteRequest;
   std::optional< std::uint32_t > defaultWeight;
};

TEST_F( OverridesTest, EverythingOfAnOverrideIsAnOption ) {
   EXPECT_EQ( output( { "overrides",      "set",        "--vrf",         "red",
                        "--prefix",       "10.0.0.0/8", "--next-hop",    "192.0.2.1",
                        "--interface",    "0",          "--labels",      "16,17",
                        "--weight",       "0",          "--to-next-hop", "192.0.2.2",
                        "--to-interface", "5",          "--to-labels",   "18" } ),
              "1 set\n" );
   EXPECT_EQ( setRequest.ShortDebugString(),
              "overrides { matcher { vrf: \"red\" prefix: \"10.0.0.0/8\" via { next_hop: "
              "\"192.0.2.1\" interface_id: 0 labels: 16 labels: 17 } } weight: 0 replacement { "
              "next_hop: \"192.0.2.2\" interface_id: 5 labels: 18 } }" );
}

TEST_F( OverridesTest, WhatIsNotGivenIsNotStated ) {
   output( { "overrides", "set", "--nexthop-group", "g", "--next-hop", "192.0.2.1" } );
   EXPECT_EQ( setRequest.ShortDebugString(),
              "overrides { matcher { nexthop_group: \"g\" via { next_hop: \"192.0.2.1\" } } }" );
}

TEST_F( OverridesTest, AMatcherIsDeleted ) {
   EXPECT_EQ( output( { "overrides", "delete", "--interface", "7" } ), "1 deleted\n" );
   EXPECT_EQ( deleteRequest.ShortDebugString(), "matchers { via { interface_id: 7 } }" );
}

TEST_F( OverridesTest, AreListedAsATable ) {
   agentHas( "default", "10.0.0.0/8", "192.0.2.1", 0 );
   agentHas( "red", "", "2001:db8::1", 5 );
   present.mutable_overrides( 1 )->mutable_replacement()->set_interface_id( 3 );
   present.mutable_overrides( 1 )->mutable_replacement()->add_labels( 16 );
   EXPECT_EQ( output( { "overrides", "list" } ),
              "VRF      ROUTE       VIA          WEIGHT  REPLACED BY\n"
              "default  10.0.0.0/8  192.0.2.1         0\n"
              "red      any route   2001:db8::1       5  interface 3 labels 16\n" );
}

TEST_F( OverridesTest, WhatIsListedCanBeSetAgain ) {
   agentHas( "default", "10.0.0.0/8", "192.0.2.1", 0 );
   agentHas( "red", "", "2001:db8::1", 5 );
   const TemporaryFile file( output( { "overrides", "list", "--format", "json" } ) );
   EXPECT_EQ( output( { "overrides", "set", "--from", file.path() } ), "2 set\n" );
   ASSERT_EQ( setRequest.overrides_size(), 2 );
   EXPECT_EQ( setRequest.overrides( 1 ).DebugString(), present.overrides( 1 ).DebugString() );
}

TEST_F( OverridesTest, ADryRunKnowsTheSameOverrideHoweverItIsWritten ) {
   agentHas( "default", "2001:db8::/32", "2001:db8::1", 5 );
   agentHas( "default", "10.0.0.0/8", "192.0.2.1", 5 );
   const TemporaryFile file(
      R"({"overrides":[{"matcher":{"prefix":"2001:DB8:0::7/32","via":{"next_hop":"2001:DB8::0001"}},)"
      R"("weight":5},{"matcher":{"vrf":"red","via":{"interface_id":3}},)"
      R"("replacement":{"next_hop":"192.0.2.9"}}]})" );
   EXPECT_EQ( output( { "overrides", "resync", "--from", file.path(), "--dry-run" } ),
              "delete  vrf default, 10.0.0.0/8, via 192.0.2.1: weight 5\n"
              "set     vrf red, any route, via interface 3: replaced by 192.0.2.9\n"
              "keep    vrf default, 2001:db8::/32, via 2001:db8::1: weight 5\n"
              "1 to delete, 1 to set, 1 to keep; nothing has been changed\n" );
}

TEST_F( OverridesTest, TheDefaultWeightIsShownAndSet ) {
   EXPECT_EQ( output( { "overrides", "default-weight" } ), "never set\n" );
   EXPECT_EQ( output( { "overrides", "default-weight", "--format", "json" } ), "{}\n" );
   EXPECT_EQ( output( { "overrides", "default-weight", "0" } ), "" );
   EXPECT_EQ( output( { "overrides", "default-weight" } ), "0\n" );
   EXPECT_EQ( output( { "overrides", "default-weight", "--format", "json" } ), "{\"weight\":0}\n" );
}

TEST_F( OverridesTest, ArgumentsThatAreWrongAreAnsweredWithTheRightOnes ) {
   EXPECT_THAT( complaint( 2, { "overrides", "set" } ),
                HasSubstr( "overrides set takes the options of one override" ) );
   EXPECT_THAT( complaint( 2, { "overrides", "set", "--from", "f", "--vrf", "red" } ),
                HasSubstr( "overrides set takes the options of one override" ) );
   EXPECT_THAT(
      complaint( 2, { "overrides", "set", "--prefix", "10.0.0.0/8", "--nexthop-group", "g" } ),
      HasSubstr( "excludes" ) );
   EXPECT_EQ(
      complaint( 2, { "overrides", "set", "--next-hop", "192.0.2.1", "--labels", "16,,17" } ),
      "veloctl: --labels: \"\" is not a number from 0 to 1048575" );
   EXPECT_EQ( complaint( 2, { "overrides", "set", "--vrf", "\xff" } ),
              "veloctl: --vrf: \"\\xff\" is not UTF-8" );
}

TEST( Addresses, HaveOneForm ) {
   EXPECT_EQ( normalAddress( "2001:DB8:0:0::1" ), "2001:db8::1" );
   EXPECT_EQ( normalAddress( "192.0.2.1" ), "192.0.2.1" );
   EXPECT_EQ( normalPrefix( "10.1.2.3/8" ), "10.0.0.0/8" );
   EXPECT_EQ( normalPrefix( "10.1.2.3/0" ), "0.0.0.0/0" );
   EXPECT_EQ( normalPrefix( "2001:db8::ff/125" ), "2001:db8::f8/125" );
}

TEST( Addresses, WhatIsNoneIsLeftToTheAgent ) {
   const std::string zeroByte( "192.0.2.1\0x/8", 13 );
   for ( const std::string & none :
         { std::string(), std::string( "x" ), std::string( "10.0.0.0/33" ),
           std::string( "10.0.0.0/" ), std::string( "10.0.0/8" ), std::string( "::/129" ), zeroByte,
           zeroByte.substr( 0, zeroByte.find( '/' ) ) } ) {
      EXPECT_EQ( normalAddress( none ), none );
      EXPECT_EQ( normalPrefix( none ), none );
   }
}

} // namespace
} // namespace VeloCtl
