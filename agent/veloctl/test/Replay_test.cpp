#include "agent/veloctl/Replay.h"

#include "agent/veloctl/test/TemporaryFile.h"
#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/recording.pb.h"

#include <google/protobuf/util/delimited_message_util.h>

namespace VeloCtl {
namespace {

using namespace std::chrono_literals;
using namespace velo::rpc::v1;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class ReplayTest : public VeloctlTest {
 protected:
   void SetUp() override {
      answer< PublishPbrCountersRequest, PublishPbrCountersResponse >(
         "SwitchState/PublishPbrCounters", [this]( const PublishPbrCountersRequest & request ) {
            published.push_back( request.ShortDebugString() );
            return PublishPbrCountersResponse();
         } );
      answer< PublishNexthopGroupsRequest, PublishNexthopGroupsResponse >(
         "SwitchState/PublishNexthopGroups", [this]( const PublishNexthopGroupsRequest & request ) {
            published.push_back( request.ShortDebugString() );
            return PublishNexthopGroupsResponse();
         } );
   }

   static RecordingEntry header( std::uint32_t format = 1 ) {
      RecordingEntry entry;
      entry.mutable_header()->set_format( format );
      return entry;
   }

   static RecordingEntry removal( std::uint64_t atUs, const std::string & policy ) {
      RecordingEntry entry;
      entry.set_at_us( atUs );
      entry.mutable_pbr_counters()->add_changes()->mutable_remove_policy()->set_policy( policy );
      return entry;
   }

   static std::string bytesOf( const std::vector< RecordingEntry > & entries ) {
      std::ostringstream bytes;
      for ( const RecordingEntry & entry : entries ) {
         google::protobuf::util::SerializeDelimitedToOstream( entry, &bytes );
      }
      return bytes.str();
   }

   std::string complaintAbout( const std::string & bytes ) {
      const TemporaryFile file( bytes );
      const std::string text = complaint( 2, { "replay", file.path() } );
      const std::string begin = "veloctl: " + file.path() + " is no recording to replay: ";
      EXPECT_EQ( text.substr( 0, begin.size() ), begin );
      EXPECT_THAT( published, SizeIs( 0 ) );
      return text.substr( std::min( begin.size(), text.size() ) );
   }

   std::vector< std::string > published;
};

TEST_F( ReplayTest, BatchesAreTheSameAgainInTheirOrder ) {
   RecordingEntry groups;
   groups.set_at_us( 200 );
   groups.mutable_nexthop_groups()->add_changes()->set_id( 7 );
   const TemporaryFile file(
      bytesOf( { header(), removal( 100, "a" ), groups, removal( 200, "b" ) } ) );
   EXPECT_EQ( output( { "replay", file.path() } ), "3 batches replayed\n" );
   EXPECT_THAT( published,
                ElementsAre( "changes { remove_policy { policy: \"a\" } }", "changes { id: 7 }",
                             "changes { remove_policy { policy: \"b\" } }" ) );
}

TEST_F( ReplayTest, AtFullSpeedNothingIsWaitedFor ) {
   const std::uint64_t aDay = 86'400'000'000;
   const TemporaryFile file( bytesOf( { header(), removal( aDay, "a" ) } ) );
   EXPECT_EQ( output( { "replay", file.path(), "--speed", "max", "--format", "json" } ),
              "{\"replayed\":1}\n" );
}

TEST_F( ReplayTest, TheSpeedSaysWhenAnEntryIsDue ) {
   EXPECT_EQ( dueAt( 3'000'000, 1 ), 3s );
   EXPECT_EQ( dueAt( 3'000'000, 2 ), 1500ms );
   EXPECT_EQ( dueAt( 3'000'000, 0.5 ), 6s );
   EXPECT_EQ( dueAt( UINT64_MAX, std::nullopt ), 0s );
   EXPECT_GT( dueAt( UINT64_MAX, 1e-300 ), 24h * 365 );
}

TEST_F( ReplayTest, AnotherFormatIsRefused ) {
   EXPECT_EQ( complaintAbout( bytesOf( { header( 2 ), removal( 1, "a" ) } ) ),
              "it has format 2, this veloctl knows format 1" );
}

TEST_F( ReplayTest, AFileThatIsCutOffIsRefusedAtEveryPlace ) {
   const std::string whole = bytesOf( { header(), removal( 1, "a" ), removal( 2, "b" ) } );
   const std::size_t headerSize = bytesOf( { header() } ).size();
   const std::size_t entrySize = bytesOf( { removal( 1, "a" ) } ).size();
   ASSERT_EQ( whole.size(), headerSize + 2 * entrySize );
   for ( std::size_t size = 1; size < headerSize; ++size ) {
      EXPECT_EQ( complaintAbout( whole.substr( 0, size ) ), "it does not begin with a header" );
   }
   for ( std::size_t entry = 1; entry <= 2; ++entry ) {
      const std::size_t begin = headerSize + ( entry - 1 ) * entrySize;
      for ( std::size_t size = begin + 1; size < begin + entrySize; ++size ) {
         EXPECT_EQ( complaintAbout( whole.substr( 0, size ) ),
                    "it is damaged or cut off in entry " + std::to_string( entry ) +
                       ", which begins at byte " + std::to_string( begin ) );
      }
   }
}

TEST_F( ReplayTest, AFileThatIsNoRecordingIsRefused ) {
   EXPECT_EQ( complaintAbout( "" ), "it is empty" );
   EXPECT_EQ( complaintAbout( "weights" ), "it does not begin with a header" );
   EXPECT_EQ( complaintAbout( bytesOf( { removal( 1, "a" ) } ) ),
              "it does not begin with a header" );
   EXPECT_EQ( complaintAbout( bytesOf( { header(), RecordingEntry() } ) ),
              "entry 1 is of no kind that this veloctl knows" );
   EXPECT_EQ( complaintAbout( bytesOf( { header(), removal( 2, "a" ), removal( 1, "b" ) } ) ),
              "entry 2 is older than the one before" );
}

TEST_F( ReplayTest, ASpeedIsANumberAboveZero ) {
   for ( const std::string wrong : { "0", "-1", "fast", " ", "1x", "inf", "nan" } ) {
      EXPECT_EQ( complaint( 2, { "replay", "f", "--speed=" + wrong } ),
                 "veloctl: --speed: \"" + wrong +
                    "\" is not a number above 0 (2: twice as fast) or max" );
   }
}

TEST_F( ReplayTest, WhatTheAgentRefusesEndsIt ) {
   RecordingEntry routes;
   routes.mutable_mpls_routes();
   const TemporaryFile file( bytesOf( { header(), routes, removal( 0, "a" ) } ) );
   EXPECT_THAT( complaint( 1, { "replay", file.path() } ), HasSubstr( "(UNIMPLEMENTED)" ) );
   EXPECT_THAT( published, SizeIs( 0 ) );
}

} // namespace
} // namespace VeloCtl
