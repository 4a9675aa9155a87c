#include "agent/TextLineFormat.h"

#include "agent/test/SomeRecord.h"

#include <gtest/gtest.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;

const TextLineFormat kText;

TEST( TextLineFormat, ARecordAlwaysSaysWhatItIsAbout ) {
   EXPECT_EQ( kText.record( someRecord() ), "7 web http: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, ANewKeyIsMarked ) {
   DeliveredRecord record = someRecord();
   record.encodeLongKey = true;
   EXPECT_EQ( kText.record( record ), "7 web http: 12 packets, 1008 bytes (new)" );
}

TEST( TextLineFormat, ADeletionAndMissingDataHaveWordsOfTheirOwn ) {
   DeliveredRecord record = someRecord();
   record.counters.reset();
   EXPECT_EQ( kText.record( record ), "7 web http: no data" );
   record.deleted = true;
   EXPECT_EQ( kText.record( record ), "7 web http: gone" );
}

TEST( TextLineFormat, AnAclRuleFollowsTheClass ) {
   DeliveredRecord record = someRecord();
   record.aclRule = "rule 1";
   EXPECT_EQ( kText.record( record ), "7 web http rule\\x201: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, NamesCannotBreakALineOrSteerATerminal ) {
   DeliveredRecord record = someRecord();
   record.policy = "a b\n";
   record.className = "\x1b[2J\\\xff";
   EXPECT_EQ( kText.record( record ), "7 a\\x20b\\x0a \\x1b[2J\\x5c\\xff: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, TheOtherEvents ) {
   EXPECT_EQ( kText.push( 1 ), "-- 1 record" );
   EXPECT_EQ( kText.push( 0 ), "-- 0 records" );
   EXPECT_EQ( kText.sourceError( "busy\n", 400ms ), "!! busy\\x0a; trying again in 400 ms" );
   EXPECT_EQ( kText.sourceRecovered(), "!! the source can be read again" );
   EXPECT_EQ( kText.note( "the table is back" ), "!! the table is back" );
}

} // namespace
} // namespace VeloAgent
