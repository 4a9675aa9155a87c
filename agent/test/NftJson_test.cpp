#include "agent/nftables/NftJson.h"

#include <gmock/gmock.h>

namespace VeloAgent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The listing of a table with these entries, as libnftables prints it.
std::string listing( const std::string & entries ) {
   return R"({"nftables": [{"metainfo": {"version": "1.0.6", "json_schema_version": 1}}, )"
          R"({"table": {"family": "inet", "name": "t", "handle": 1}})" +
          ( entries.empty() ? "" : ", " + entries ) + "]}";
}

std::string named( const std::string & name, const std::string & packets,
                   const std::string & bytes ) {
   return R"({"counter": {"family": "inet", "name": ")" + name +
          R"(", "table": "t", "handle": 2, )" + R"("packets": )" + packets + R"(, "bytes": )" +
          bytes + "}}";
}

std::string rule( const std::string & chain, const std::string & comment,
                  const std::string & statements ) {
   return R"({"rule": {"family": "inet", "table": "t", "chain": ")" + chain +
          R"(", "handle": 5, )" +
          ( comment.empty() ? "" : R"("comment": ")" + comment + R"(", )" ) + R"("expr": [)" +
          statements + "]}}";
}

std::string counting( int packets, int bytes ) {
   return R"({"counter": {"packets": )" + std::to_string( packets ) + R"(, "bytes": )" +
          std::to_string( bytes ) + "}}";
}

CounterSnapshot countersOf( const std::string & entries ) {
   return countersFromNftJson( listing( entries ) ).counters;
}

std::string complaintAbout( const std::string & text ) {
   try {
      countersFromNftJson( text );
   } catch ( const NftJsonError & error ) { return error.what(); }
   return "none";
}

TEST( NftJson, ATableWithoutCountersHasNone ) { EXPECT_THAT( countersOf( "" ), IsEmpty() ); }

TEST( NftJson, ANamedCounterIsPolicySlashClass ) {
   EXPECT_EQ( countersOf( named( "web/http", "12", "1008" ) ),
              ( CounterSnapshot{ { "web", { { "http", { 12, 1008 } } } } } ) );
}

TEST( NftJson, TheFirstSlashParts ) {
   EXPECT_EQ( countersOf( named( "web/http/2", "1", "2" ) ),
              ( CounterSnapshot{ { "web", { { "http/2", { 1, 2 } } } } } ) );
}

TEST( NftJson, NamedCountersThatDoNotPartInTwoArePassedOverAndReported ) {
   const NftCounters found = countersFromNftJson(
      listing( named( "plain", "1", "2" ) + ", " + named( "/class", "1", "2" ) + ", " +
               named( "policy/", "1", "2" ) + ", " + named( "a/b", "3", "4" ) ) );
   EXPECT_THAT( found.misnamed, ElementsAre( "plain", "/class", "policy/" ) );
   EXPECT_EQ( found.counters, ( CounterSnapshot{ { "a", { { "b", { 3, 4 } } } } } ) );
}

TEST( NftJson, AnAnonymousCounterIsChainAndComment ) {
   EXPECT_EQ( countersOf( rule( "output", "echo class", counting( 3, 252 ) ) ),
              ( CounterSnapshot{ { "output", { { "echo class", { 3, 252 } } } } } ) );
}

TEST( NftJson, RulesWithOneCommentAreSummedPerChain ) {
   EXPECT_EQ(
      countersOf( rule( "in", "c", counting( 1, 10 ) ) + ", " +
                  rule( "in", "c", counting( 2, 20 ) ) + ", " +
                  rule( "out", "c", counting( 4, 40 ) ) ),
      ( CounterSnapshot{ { "in", { { "c", { 3, 30 } } } }, { "out", { { "c", { 4, 40 } } } } } ) );
}

TEST( NftJson, ANamedCounterAndARuleOfTheSameClassAreSummed ) {
   EXPECT_EQ(
      countersOf( named( "in/c", "1", "10" ) + ", " + rule( "in", "c", counting( 2, 20 ) ) ),
      ( CounterSnapshot{ { "in", { { "c", { 3, 30 } } } } } ) );
}

TEST( NftJson, ARuleThatOnlyNamesACounterAddsNothing ) {
   EXPECT_EQ( countersOf( named( "in/c", "1", "10" ) + ", " +
                          rule( "in", "c", R"({"counter": "in/c"}, {"accept": null})" ) ),
              ( CounterSnapshot{ { "in", { { "c", { 1, 10 } } } } } ) );
}

TEST( NftJson, RulesWithoutACommentArePassedOver ) {
   EXPECT_THAT( countersOf( rule( "in", "", counting( 1, 10 ) ) ), IsEmpty() );
}

TEST( NftJson, ACommentedRuleWithoutACounterIsNoClass ) {
   EXPECT_THAT( countersOf( rule( "in", "c", R"({"accept": null})" ) ), IsEmpty() );
}

TEST( NftJson, CountersFrom2To63OnArePrintedNegativeAndReadForWhatTheyWere ) {
   EXPECT_EQ( countersOf( named( "a/b", "-1", "-9223372036854775808" ) ),
              ( CounterSnapshot{ { "a", { { "b", { UINT64_MAX, 1ULL << 63 } } } } } ) );
   EXPECT_EQ( countersOf( named( "a/b", "18446744073709551615", "0" ) ),
              ( CounterSnapshot{ { "a", { { "b", { UINT64_MAX, 0 } } } } } ) );
}

TEST( NftJson, SumsWrapAsTheKernelsCountersDo ) {
   EXPECT_EQ(
      countersOf( named( "in/c", "-1", "-1" ) + ", " + rule( "in", "c", counting( 3, 1 ) ) ),
      ( CounterSnapshot{ { "in", { { "c", { 2, 0 } } } } } ) );
}

TEST( NftJson, NumbersThatDoNotFitAreRefusedNotGuessed ) {
   EXPECT_THAT( complaintAbout( listing( named( "a/b", "18446744073709551616", "0" ) ) ),
                HasSubstr( "\"packets\" of a counter is no 64-bit number" ) );
   EXPECT_THAT( complaintAbout( listing( named( "a/b", "1.5", "0" ) ) ),
                HasSubstr( "\"packets\" of a counter is no 64-bit number" ) );
   EXPECT_THAT( complaintAbout( listing( named( "a/b", "1", "\"2\"" ) ) ),
                HasSubstr( "\"bytes\" of a counter is no 64-bit number" ) );
}

TEST( NftJson, NamesMayHoldOddBytes ) {
   EXPECT_EQ(
      countersOf( rule( "in", R"(tab\there \"q\" \\ \u00e9 \u0000)", counting( 1, 2 ) ) ),
      ( CounterSnapshot{
         { "in", { { std::string( "tab\there \"q\" \\ \xc3\xa9 \0", 19 ), { 1, 2 } } } } } ) );
}

TEST( NftJson, EntriesOfOtherKindsArePassedOver ) {
   EXPECT_EQ( countersOf( R"({"chain": {"family": "inet", "table": "t", "name": "in"}}, )"
                          R"({"set": {"name": "s", "elem": [{"elem": {"val": 1}}]}}, )"
                          R"({"later invention": [1, 2]}, {"counter": null}, null, 7, )" +
                          named( "a/b", "1", "2" ) ),
              ( CounterSnapshot{ { "a", { { "b", { 1, 2 } } } } } ) );
}

TEST( NftJson, TextThatIsNoListingIsRefusedWithTheReason ) {
   EXPECT_THAT( complaintAbout( "" ), HasSubstr( "no JSON at all" ) );
   EXPECT_THAT( complaintAbout( R"({"nftables": [)" ), HasSubstr( "no JSON at all" ) );
   EXPECT_THAT( complaintAbout( "{\"nftables\": [\"\xff\"]}" ), HasSubstr( "no JSON at all" ) );
   EXPECT_THAT( complaintAbout( "[]" ), HasSubstr( "listing without \"nftables\"" ) );
   EXPECT_THAT( complaintAbout( "{}" ), HasSubstr( "listing without \"nftables\"" ) );
   EXPECT_THAT( complaintAbout( R"({"nftables": 1})" ), HasSubstr( "is no array" ) );
}

TEST( NftJson, MissingFieldsAreRefusedWithTheirNames ) {
   EXPECT_THAT( complaintAbout( listing( R"({"counter": {"packets": 1, "bytes": 2}})" ) ),
                HasSubstr( "counter without \"name\"" ) );
   EXPECT_THAT( complaintAbout( listing( R"({"counter": {"name": 1}})" ) ),
                HasSubstr( "\"name\" of a counter is no string" ) );
   EXPECT_THAT( complaintAbout( listing( R"({"counter": {"name": "a/b", "bytes": 2}})" ) ),
                HasSubstr( "counter without \"packets\"" ) );
   EXPECT_THAT( complaintAbout( listing( R"({"rule": {"comment": "c", "expr": []}})" ) ),
                HasSubstr( "rule without \"chain\"" ) );
   EXPECT_THAT( complaintAbout( listing( R"({"rule": {"comment": "c", "chain": "in"}})" ) ),
                HasSubstr( "rule without \"expr\"" ) );
   EXPECT_THAT( complaintAbout( listing( rule( "in", "c", R"({"counter": {"packets": 1}})" ) ) ),
                HasSubstr( "counter without \"bytes\"" ) );
}

TEST( NftJson, AListingOfTablesGivesFamilySlashName ) {
   EXPECT_THAT( tablesFromNftJson( R"({"nftables": [{"metainfo": {}}, )"
                                   R"({"table": {"family": "inet", "name": "t", "handle": 1}}, )"
                                   R"({"table": {"family": "ip", "name": "a/b", "handle": 2}}]})" ),
                ElementsAre( "inet/t", "ip/a/b" ) );
   EXPECT_THROW( tablesFromNftJson( R"({"nftables": [{"table": {"name": "t"}}]})" ), NftJsonError );
}

} // namespace
} // namespace VeloAgent
