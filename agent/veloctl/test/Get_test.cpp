#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;

class GetTest : public VeloctlTest {
 protected:
   void SetUp() override {
      answer< PbrCountersGetRequest, PbrCountersGetResponse >(
         "PbrCounters/Get", [this]( const PbrCountersGetRequest & request ) {
            asked = request;
            const PbrCountersKey & key = request.long_key();
            if ( key.policy() != "web" && request.short_key() != 7 ) {
               throw Refusal( kNotFound, "there is no such class" );
            }
            PbrCountersGetResponse response;
            auto & record = *response.mutable_record();
            record.set_short_key( 7 );
            record.mutable_long_key()->set_policy( "web" );
            record.mutable_long_key()->set_class_name( "http" );
            record.mutable_counters()->set_packets( 2 );
            record.mutable_counters()->set_bytes( 168 );
            return response;
         } );
   }

   PbrCountersGetRequest asked;
};

TEST_F( GetTest, AClassIsNamedByItsPolicyAndItsName ) {
   EXPECT_EQ( output( { "get", "web", "h\xff" } ), "7 web http: 2 packets, 168 bytes\n" );
   EXPECT_EQ( asked.long_key().class_name(), "h\xff" );
}

TEST_F( GetTest, OrByItsShortKey ) {
   EXPECT_EQ( output( { "get", "--short-key", "7", "--format", "json" } ),
              R"({"short_key":7,"long_key":{"policy":"web","class_name":"http","acl_rule":""},)"
              R"("counters":{"packets":2,"bytes":168},"deleted":false})"
              "\n" );
}

TEST_F( GetTest, NamesMayLookLikeOptionsBehindTwoDashes ) {
   EXPECT_EQ( output( { "get", "--", "web", "--http" } ), "7 web http: 2 packets, 168 bytes\n" );
   EXPECT_EQ( asked.long_key().class_name(), "--http" );
}

TEST_F( GetTest, WhatIsNotThereIsToldByTheAgent ) {
   EXPECT_EQ( complaint( 1, { "get", "mail", "smtp" } ),
              "veloctl: there is no such class (NOT_FOUND)" );
}

TEST_F( GetTest, ItIsOneOrTheOther ) {
   for ( const std::vector< std::string > & wrong : { std::vector< std::string >{ "get" },
                                                      { "get", "web" },
                                                      { "get", "web", "http", "--short-key", "7" },
                                                      { "get", "web", "--short-key", "7" } } ) {
      EXPECT_EQ( complaint( 2, wrong ),
                 "veloctl: get takes POLICY and CLASS, or else --short-key N" );
   }
}

} // namespace
} // namespace VeloCtl
