#include "agent/TextLineFormat.h"

#include <gtest/gtest.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;

const TextLineFormat kFormat;

DeliveredRecord someRecord() {
   return { .shortKey = 7,
            .encodeLongKey = false,
            .deleteKey = false,
            .policy = "web",
            .className = "http",
            .aclRule = "",
            .longKeyIsNews = false,
            .counters = Counters{ 12, 1008 },
            .deleted = false };
}

TEST( TextLineFormat, ARecordAlwaysSaysWhatItIsAbout ) {
   EXPECT_EQ( kFormat.record( someRecord() ), "7 web http: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, ANewKeyIsMarked ) {
   DeliveredRecord record = someRecord();
   record.encodeLongKey = true;
   EXPECT_EQ( kFormat.record( record ), "7 web http: 12 packets, 1008 bytes (new)" );
}

TEST( TextLineFormat, ADeletionAndMissingDataHaveWordsOfTheirOwn ) {
   DeliveredRecord record = someRecord();
   record.counters.reset();
   EXPECT_EQ( kFormat.record( record ), "7 web http: no data" );
   record.deleted = true;
   EXPECT_EQ( kFormat.record( record ), "7 web http: gone" );
}

TEST( TextLineFormat, AnAclRuleFollowsTheClass ) {
   DeliveredRecord record = someRecord();
   record.aclRule = "rule 1";
   EXPECT_EQ( kFormat.record( record ), "7 web http rule\\x201: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, NamesCannotBreakALineOrSteerATerminal ) {
   DeliveredRecord record = someRecord();
   record.policy = "a b\n";
   record.className = "\x1b[2J\\\xff";
   EXPECT_EQ( kFormat.record( record ),
              "7 a\\x20b\\x0a \\x1b[2J\\x5c\\xff: 12 packets, 1008 bytes" );
}

TEST( TextLineFormat, TheOtherEvents ) {
   EXPECT_EQ( kFormat.push( 1 ), "-- 1 record" );
   EXPECT_EQ( kFormat.push( 0 ), "-- 0 records" );
   EXPECT_EQ( kFormat.sourceError( "busy\n", 400ms ), "!! busy\\x0a; trying again in 400 ms" );
   EXPECT_EQ( kFormat.sourceRecovered(), "!! the source can be read again" );
   EXPECT_EQ( kFormat.note( "the table is back" ), "!! the table is back" );
}

} // namespace
} // namespace VeloAgent
