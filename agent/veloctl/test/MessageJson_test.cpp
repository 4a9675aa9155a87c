#include "agent/veloctl/MessageJson.h"

#include "agent/JsonText.h"
#include "agent/veloctl/Failures.h"
#include "velo/rpc/v1/fib_overrides.pb.h"
#include "velo/rpc/v1/pbr_counters.pb.h"
#include "velo/rpc/v1/switch_state.pb.h"

#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <nlohmann/json.hpp>

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;

template< typename Message >
std::string complaintAbout( const std::string & text ) {
   Message message;
   try {
      readJson( text, message, "file" );
   } catch ( const WrongUse & error ) { return error.what(); }
   return "none";
}

template< typename Message >
Message read( const std::string & text ) {
   Message message;
   readJson( text, message, "file" );
   return message;
}

std::string written( const google::protobuf::Message & message ) {
   return VeloAgent::lineOf( jsonOf( message ) );
}

TEST( MessageJson, AMessageIsAnObjectWithItsFields ) {
   PbrCountersRecord record;
   record.set_short_key( 18446744073709551615U );
   record.mutable_long_key()->set_policy( "web" );
   record.mutable_counters()->set_packets( 12 );
   EXPECT_EQ( written( record ), R"({"short_key":18446744073709551615,)"
                                 R"("long_key":{"policy":"web","class_name":"","acl_rule":""},)"
                                 R"("counters":{"packets":12,"bytes":0},"deleted":false})" );
}

TEST( MessageJson, WhatIsNotThereIsLeftOut ) {
   FibOverride item;
   EXPECT_EQ( written( item ), "{}" );
   item.set_weight( 0 );
   EXPECT_EQ( written( item ), R"({"weight":0})" );
}

TEST( MessageJson, EnumValuesAreWords ) {
   MplsHardwareRoute route;
   route.set_state( MplsHardwareRoute::PROGRAMMING_STATE_PENDING );
   EXPECT_EQ( written( route ), R"({"label":0,"state":"pending"})" );
   EXPECT_EQ( read< MplsHardwareRoute >( R"({"state":"programmed"})" ).state(),
              MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
   EXPECT_EQ( complaintAbout< MplsHardwareRoute >( R"({"state":"done"})" ),
              R"(file: state: "done" is not one of programmed, pending)" );
}

TEST( MessageJson, WhatWasWrittenIsReadAgain ) {
   FibOverridesSetRequest request;
   for ( int i = 0; i < 2; ++i ) {
      FibOverride & item = *request.add_overrides();
      item.mutable_matcher()->set_prefix( "10.0.0.0/8" );
      item.mutable_matcher()->mutable_via()->set_interface_id( 0 );
      item.mutable_replacement()->add_labels( 16 );
      item.mutable_replacement()->add_labels( 1048575 );
      item.set_weight( 4294967295U );
   }
   const auto again = read< FibOverridesSetRequest >( written( request ) );
   EXPECT_TRUE( google::protobuf::util::MessageDifferencer::Equals( again, request ) );
}

TEST( MessageJson, NamesMayHoldAnyBytes ) {
   PbrCountersKey key;
   key.set_policy( std::string( "a\0\n", 3 ) );
   key.set_class_name( "b\xff" );
   EXPECT_EQ( written( key ), "{\"policy\":\"a\\u0000\\n\",\"class_name\":\"b\xef\xbf\xbd\","
                              "\"class_name_hex\":\"62ff\",\"acl_rule\":\"\"}" );
   const auto again = read< PbrCountersKey >( written( key ) );
   EXPECT_EQ( again.policy(), key.policy() );
   EXPECT_EQ( again.class_name(), "b\xff" );
}

TEST( MessageJson, TheDigitsCountWhereverTheyStand ) {
   EXPECT_EQ( read< PbrCountersKey >( R"({"policy_hex":"ff","policy":"x"})" ).policy(), "\xff" );
   EXPECT_EQ( read< PbrCountersKey >( R"({"policy":"x","policy_hex":"ff"})" ).policy(), "\xff" );
   EXPECT_EQ( complaintAbout< PbrCountersKey >( R"({"policy_hex":"f"})" ),
              R"(file: policy_hex: "f" is not bytes as pairs of the digits 0 to 9 and a to f)" );
   EXPECT_EQ( complaintAbout< PbrCountersKey >( R"({"policy_hex":"fg"})" ),
              R"(file: policy_hex: "fg" is not bytes as pairs of the digits 0 to 9 and a to f)" );
}

TEST( MessageJson, TextOfTheInterfaceHasNoDigits ) {
   EXPECT_EQ( complaintAbout< FibOverrideMatcher >( R"({"vrf_hex":"61"})" ),
              R"(file: there is no "vrf_hex" here, only vrf, prefix, nexthop_group, via)" );
}

TEST( MessageJson, AnErrorNamesItsPlace ) {
   EXPECT_EQ( complaintAbout< FibOverridesSetRequest >(
                 R"({"overrides":[{},{"matcher":{"via":{"labels":[16,-1]}}}]})" ),
              "file: overrides[1].matcher.via.labels[1]: -1 is not a number from 0 to 4294967295" );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"weight":4294967296})" ),
              "file: weight: 4294967296 is not a number from 0 to 4294967295" );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"weight":1.5})" ),
              "file: weight: 1.5 is not a number from 0 to 4294967295" );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"matcher":[]})" ),
              "file: matcher: [] is not an object { ... }" );
   EXPECT_EQ( complaintAbout< FibOverridesSetRequest >( R"({"overrides":{}})" ),
              "file: overrides: {} is not a list" );
   EXPECT_EQ( complaintAbout< FibOverrideMatcher >( R"({"vrf":7})" ),
              "file: vrf: 7 is not a text" );
   EXPECT_EQ( complaintAbout< PbrCountersRecord >( R"({"deleted":1})" ),
              "file: deleted: 1 is not true or false" );
}

TEST( MessageJson, AnErrorIsOneShortLineWhateverIsWrong ) {
   const std::string deep = std::string( 300'000, '[' ) + std::string( 300'000, ']' );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"weight":)" + deep + "}" ),
              "file: weight: [ ... ] is not a number from 0 to 4294967295" );
   EXPECT_EQ( complaintAbout< FibOverridesSetRequest >( R"({"overrides":{"a":[1,2,3]}})" ),
              "file: overrides: { ... } is not a list" );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"matcher":{"a\nb":""}})" ),
              R"(file: matcher: there is no "a\nb" here, only vrf, prefix, nexthop_group, via)" );
}

TEST( MessageJson, WhatHasNoPlaceIsRefused ) {
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"matcher":{"prefx":""}})" ),
              R"(file: matcher: there is no "prefx" here, only vrf, prefix, nexthop_group, via)" );
   EXPECT_EQ( complaintAbout< MplsRouteChange >( R"({"remove_route":1,"set_route":{}})" ),
              "file: there can be only one of remove_route and set_route" );
}

TEST( MessageJson, TextThatIsNoJsonIsRefused ) {
   EXPECT_EQ( complaintAbout< FibOverride >( "" ), "file: no JSON, from byte 1 on" );
   EXPECT_EQ( complaintAbout< FibOverride >( R"({"weight":1,})" ),
              "file: no JSON, from byte 13 on" );
   EXPECT_EQ( complaintAbout< FibOverride >( "\"\xff\"" ), "file: no JSON, from byte 2 on" );
}

} // namespace
} // namespace VeloCtl
