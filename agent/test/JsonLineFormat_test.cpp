#include "agent/JsonLineFormat.h"

#include "agent/test/SomeRecord.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;

const JsonLineFormat kJson;

TEST( JsonLineFormat, AKnownKeyGoesByItsShortKeyAlone ) {
   EXPECT_EQ( kJson.record( someRecord() ),
              R"({"event":"record","short_key":7,)"
              R"("flags":{"encode_long_key":false,"delete_key":false},)"
              R"("data":{"packets":12,"bytes":1008},"deleted":false})" );
}

TEST( JsonLineFormat, TheLongKeyFollowsWhenTheRecordAsksForIt ) {
   DeliveredRecord record = someRecord();
   record.encodeLongKey = true;
   EXPECT_EQ( kJson.record( record ), R"({"event":"record","short_key":7,)"
                                      R"("flags":{"encode_long_key":true,"delete_key":false},)"
                                      R"("long_key":{"policy":"web","class":"http","acl_rule":""},)"
                                      R"("data":{"packets":12,"bytes":1008},"deleted":false})" );
}

TEST( JsonLineFormat, TheLongKeyFollowsWhenItIsNewsToTheReader ) {
   DeliveredRecord record = someRecord();
   record.longKeyIsNews = true;
   const auto line = nlohmann::json::parse( kJson.record( record ) );
   EXPECT_EQ( line["long_key"]["class"], "http" );
   EXPECT_EQ( line["flags"]["encode_long_key"], false );
}

TEST( JsonLineFormat, ADeletionHasNoData ) {
   DeliveredRecord record = someRecord();
   record.deleteKey = true;
   record.deleted = true;
   record.counters.reset();
   EXPECT_EQ( kJson.record( record ), R"({"event":"record","short_key":7,)"
                                      R"("flags":{"encode_long_key":false,"delete_key":true},)"
                                      R"("data":null,"deleted":true})" );
}

TEST( JsonLineFormat, LargeNumbersStayExact ) {
   DeliveredRecord record = someRecord();
   record.shortKey = UINT64_MAX;
   record.counters = Counters{ UINT64_MAX, UINT64_MAX - 1 };
   const auto line = nlohmann::json::parse( kJson.record( record ) );
   EXPECT_EQ( line["short_key"].get< std::uint64_t >(), UINT64_MAX );
   EXPECT_EQ( line["data"]["bytes"].get< std::uint64_t >(), UINT64_MAX - 1 );
}

TEST( JsonLineFormat, NamesMayHoldAnyBytesAndNoTwoLookTheSame ) {
   DeliveredRecord record = someRecord();
   record.encodeLongKey = true;
   record.policy = std::string_view( "a\0\n\"\\", 5 );
   record.className = "b\xff";
   const auto line = nlohmann::json::parse( kJson.record( record ) );
   EXPECT_EQ( line["long_key"]["policy"], std::string( "a\0\n\"\\", 5 ) );
   EXPECT_FALSE( line["long_key"].contains( "policy_hex" ) );
   EXPECT_EQ( line["long_key"]["class"], "b\xef\xbf\xbd" );
   EXPECT_EQ( line["long_key"]["class_hex"], "62ff" );

   record.className = "b\xfe";
   const auto other = nlohmann::json::parse( kJson.record( record ) );
   EXPECT_NE( line["long_key"], other["long_key"] );
}

TEST( JsonLineFormat, ValidUtf8StaysAsItIs ) {
   DeliveredRecord record = someRecord();
   record.encodeLongKey = true;
   record.className = "caf\xc3\xa9 \xef\xbf\xbd";
   const auto line = nlohmann::json::parse( kJson.record( record ) );
   EXPECT_EQ( line["long_key"]["class"], "caf\xc3\xa9 \xef\xbf\xbd" );
   EXPECT_FALSE( line["long_key"].contains( "class_hex" ) );
}

TEST( JsonLineFormat, TheOtherEvents ) {
   EXPECT_EQ( kJson.push( 3 ), R"({"event":"push","records":3})" );
   EXPECT_EQ( kJson.sourceError( "busy \xff", 400ms ),
              "{\"event\":\"source-error\",\"what\":\"busy \xef\xbf\xbd\",\"retry_in_ms\":400}" );
   EXPECT_EQ( kJson.sourceRecovered(), R"({"event":"source-recovered"})" );
   EXPECT_EQ( kJson.note( "a\nb" ), R"({"event":"note","what":"a\nb"})" );
}

} // namespace
} // namespace VeloAgent
