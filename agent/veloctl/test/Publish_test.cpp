#include "agent/veloctl/test/TemporaryFile.h"
#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/switch_state.pb.h"

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class PublishTest : public VeloctlTest {
 protected:
   void SetUp() override {
      keep< PublishPbrCountersRequest, PublishPbrCountersResponse >( "PublishPbrCounters" );
      keep< PublishMplsRoutesRequest, PublishMplsRoutesResponse >( "PublishMplsRoutes" );
      keep< PublishNexthopGroupsRequest, PublishNexthopGroupsResponse >( "PublishNexthopGroups" );
   }

   template< typename Request, typename Response >
   void keep( const std::string & method ) {
      answer< Request, Response >( "SwitchState/" + method, [this]( const Request & request ) {
         published.push_back( request.ShortDebugString() );
         return Response();
      } );
   }

   std::vector< std::string > published;
};

TEST_F( PublishTest, AClassIsSet ) {
   EXPECT_EQ( output( { "publish", "pbr", "set", "web", "h\xff", "12", "1008" } ),
              "1 published\n" );
   EXPECT_THAT( published, ElementsAre( "changes { set_class { policy: \"web\" class_name: "
                                        "\"h\\377\" packets: 12 bytes: 1008 } }" ) );
}

TEST_F( PublishTest, AClassOrAWholePolicyIsRemoved ) {
   output( { "publish", "pbr", "remove", "web", "http" } );
   EXPECT_EQ( output( { "publish", "pbr", "remove", "web", "--format", "json" } ),
              "{\"published\":1}\n" );
   EXPECT_THAT( published,
                ElementsAre( "changes { remove_class { policy: \"web\" class_name: \"http\" } }",
                             "changes { remove_policy { policy: \"web\" } }" ) );
}

TEST_F( PublishTest, ARouteIsAcknowledgedAsSoonAsAnythingOfThatIsSaid ) {
   output( { "publish", "mpls", "set", "16" } );
   output( { "publish", "mpls", "set", "16", "--group", "7" } );
   output( { "publish", "mpls", "set", "16", "--pending", "--fec", "9", "--route-version", "0",
             "--group-version", "3", "--ack", "255" } );
   output( { "publish", "mpls", "remove", "16" } );
   EXPECT_THAT(
      published,
      ElementsAre( "changes { set_route { label: 16 state: PROGRAMMING_STATE_PROGRAMMED } }",
                   "changes { set_route { label: 16 state: PROGRAMMING_STATE_PROGRAMMED "
                   "acknowledgement { nexthop_group_id: 7 route_version: 1 "
                   "nexthop_group_version: 1 } } }",
                   "changes { set_route { label: 16 state: PROGRAMMING_STATE_PENDING "
                   "acknowledgement { fec_id: 9 nexthop_group_version: 3 ack: 255 } } }",
                   "changes { remove_route: 16 }" ) );
}

TEST_F( PublishTest, AGroupIsNamedAndUnnamed ) {
   output( { "publish", "nhg", "set", "7", "to spine" } );
   output( { "publish", "nhg", "remove", "7" } );
   EXPECT_THAT( published,
                ElementsAre( "changes { id: 7 name: \"to spine\" }", "changes { id: 7 }" ) );
}

TEST_F( PublishTest, AFileHasOneChangeOnEachLine ) {
   const TemporaryFile file( R"({"set_class":{"policy":"web","class_name_hex":"ff","packets":1}})"
                             "\n\n"
                             R"({"remove_policy":{"policy":"web"}})" );
   EXPECT_EQ( output( { "publish", "pbr", "from", file.path() } ), "2 published\n" );
   EXPECT_THAT(
      published,
      ElementsAre( "changes { set_class { policy: \"web\" class_name: \"\\377\" packets: 1 "
                   "} } changes { remove_policy { policy: \"web\" } }" ) );
}

TEST_F( PublishTest, ALongFileIsPublishedInSeveralBatches ) {
   std::string lines;
   for ( int i = 0; i < 2500; ++i ) { lines += "{\"id\":" + std::to_string( i ) + "}\n"; }
   const TemporaryFile file( lines );
   EXPECT_EQ( output( { "publish", "nhg", "from", file.path() } ), "2500 published\n" );
   EXPECT_THAT( published, SizeIs( 3 ) );
}

TEST_F( PublishTest, OfAFileWithAWrongLineNothingIsPublished ) {
   const TemporaryFile file( "{\"remove_route\":16}\n{\"set_route\":{\"state\":\"ok\"}}\n" );
   EXPECT_EQ( complaint( 2, { "publish", "mpls", "from", file.path() } ),
              "veloctl: " + file.path() +
                 ", line 2: set_route.state: \"ok\" is not one of programmed, pending" );
   EXPECT_THAT( published, SizeIs( 0 ) );
}

TEST_F( PublishTest, ArgumentsThatAreWrongAreAnsweredWithTheRightOnes ) {
   EXPECT_EQ( complaint( 2, { "publish", "pbr", "set", "web", "http", "1", "-1" } ),
              "veloctl: BYTES: \"-1\" is not a number from 0 to 18446744073709551615" );
   EXPECT_EQ( complaint( 2, { "publish", "pbr", "set", "web", "http", "1", "many" } ),
              "veloctl: BYTES: \"many\" is not a number from 0 to 18446744073709551615" );
   EXPECT_EQ( complaint( 2, { "publish", "mpls", "set", "1048576" } ),
              "veloctl: LABEL: \"1048576\" is not a number from 0 to 1048575" );
   EXPECT_EQ( complaint( 2, { "publish", "nhg", "set", "7", "\xff" } ),
              "veloctl: NAME: \"\\xff\" is not UTF-8" );
   EXPECT_THAT( complaint( 2, { "publish", "mpls", "set", "16", "--group", "1", "--fec", "2" } ),
                HasSubstr( "excludes" ) );
}

} // namespace
} // namespace VeloCtl
