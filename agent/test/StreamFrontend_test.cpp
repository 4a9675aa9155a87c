#include "agent/StreamFrontend.h"

#include "agent/JsonLineFormat.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace VeloAgent {
namespace {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapKey;
using VeloSdkRpc::PbrCounters;
using VeloSdkRpc::PbrCountersEncodingFlags;
using VeloSdkRpc::PbrCountersKey;

constexpr std::uint8_t kEncodeLongKey = 1;
constexpr std::uint8_t kDeleteKey = 2;

/// Feeds records to a frontend and reads the lines that come out.
class StreamFrontendTest : public testing::Test {
 protected:
   void SetUp() override { ASSERT_EQ( ::pipe( pipe_ ), 0 ); }
   void TearDown() override {
      ::close( pipe_[0] );
      ::close( pipe_[1] );
   }

   void update( std::uint64_t shortKey, std::uint64_t packets, std::uint8_t flags = 0 ) {
      const auto data = Lumo::makeNode< CountersData >( Lumo::String( "http" ),
                                                        CountData( packets, 64 * packets ) );
      frontend().appendItem( PbrCounters( shortKey, longKey_, data, false ),
                             PbrCountersEncodingFlags( flags ) );
   }
   void remove( std::uint64_t shortKey ) {
      frontend().appendItem( PbrCounters( shortKey, longKey_, nullptr, true ),
                             PbrCountersEncodingFlags( kDeleteKey ) );
   }

   /// Pushes, and returns what was written since the last time.
   std::vector< nlohmann::json > lines() {
      frontend().push();
      std::string text( 65536, '\0' );
      const ssize_t size = ::read( pipe_[0], text.data(), text.size() );
      text.resize( static_cast< std::size_t >( size ) );
      std::vector< nlohmann::json > all;
      for ( std::size_t at = 0; at < text.size(); ) {
         const std::size_t end = text.find( '\n', at );
         all.push_back( nlohmann::json::parse( text.substr( at, end - at ) ) );
         at = end + 1;
      }
      return all;
   }

   StreamFrontend & frontend() {
      if ( !frontend_ ) {
         output_.emplace( pipe_[1], -1, [] { FAIL(); } );
         frontend_ = Lumo::makeNode< StreamFrontend >( format_, *output_ );
      }
      return *frontend_;
   }

   const PbrCountersKey longKey_{ PolicyMapKey( "web" ), "http", "" };

 private:
   int pipe_[2];
   JsonLineFormat format_;
   std::optional< Output > output_;
   Lumo::Ptr< StreamFrontend > frontend_;
};

TEST_F( StreamFrontendTest, ARecordIsALineAndAPushIsALine ) {
   update( 7, 12, kEncodeLongKey );
   const auto written = lines();
   ASSERT_EQ( written.size(), 2U );
   EXPECT_EQ( written[0].dump(),
              R"({"data":{"bytes":768,"packets":12},"deleted":false,"event":"record",)"
              R"("flags":{"delete_key":false,"encode_long_key":true},)"
              R"("long_key":{"acl_rule":"","class":"http","policy":"web"},"short_key":7})" );
   EXPECT_EQ( written[1].dump(), R"({"event":"push","records":1})" );
}

TEST_F( StreamFrontendTest, AnEmptyPushIsALineToo ) {
   EXPECT_EQ( lines().at( 0 ).dump(), R"({"event":"push","records":0})" );
}

TEST_F( StreamFrontendTest, AKeyKnownBeforeWatchingBeganIsToldWhenItIsMetFirst ) {
   update( 7, 1 );
   update( 7, 2 );
   const auto written = lines();
   EXPECT_TRUE( written[0].contains( "long_key" ) );
   EXPECT_FALSE( written[0]["flags"]["encode_long_key"] );
   EXPECT_FALSE( written[1].contains( "long_key" ) );
}

TEST_F( StreamFrontendTest, ANewKeyIsToldOnce ) {
   update( 7, 1, kEncodeLongKey );
   update( 7, 2 );
   const auto written = lines();
   EXPECT_TRUE( written[0].contains( "long_key" ) );
   EXPECT_FALSE( written[1].contains( "long_key" ) );
}

TEST_F( StreamFrontendTest, ARecordThatAsksForTheLongKeyHasItThoughItIsNoNews ) {
   update( 7, 1 );
   update( 7, 2, kEncodeLongKey );
   EXPECT_TRUE( lines()[1].contains( "long_key" ) );
}

TEST_F( StreamFrontendTest, ADeletionIsToldAndTheKeyForgotten ) {
   update( 7, 1, kEncodeLongKey );
   EXPECT_EQ( frontend().told(), 1U );
   remove( 7 );
   EXPECT_EQ( frontend().told(), 0U );
   const auto written = lines();
   EXPECT_FALSE( written[1].contains( "long_key" ) );
   EXPECT_TRUE( written[1]["data"].is_null() );
   EXPECT_TRUE( written[1]["deleted"] );
}

TEST_F( StreamFrontendTest, ADeletionOfAKeyNeverToldSaysWhichItWas ) {
   remove( 7 );
   EXPECT_TRUE( lines()[0].contains( "long_key" ) );
   EXPECT_EQ( frontend().told(), 0U );
}

TEST_F( StreamFrontendTest, AClassWithoutCountersHasNullData ) {
   frontend().appendItem( PbrCounters( 7, longKey_, nullptr, false ), PbrCountersEncodingFlags() );
   const auto line = lines()[0];
   EXPECT_TRUE( line["data"].is_null() );
   EXPECT_FALSE( line["deleted"] );
}

TEST_F( StreamFrontendTest, NoRecordFollowsTheLastOneAllowed ) {
   int full = 0;
   frontend().maxRecordsAre( 2, [&full] { ++full; } );
   update( 1, 1 );
   EXPECT_EQ( full, 0 );
   update( 2, 1 );
   EXPECT_EQ( full, 1 );
   update( 3, 1 );
   EXPECT_EQ( full, 1 );
   const auto written = lines();
   ASSERT_EQ( written.size(), 3U );
   EXPECT_EQ( written[2]["records"], 2 );
}

} // namespace
} // namespace VeloAgent
