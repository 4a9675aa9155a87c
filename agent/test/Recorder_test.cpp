#include "agent/recording/Recorder.h"

#include "agent/test/TemporaryDirectory.h"

#include <fstream>
#include <gmock/gmock.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <optional>
#include <velo/rpc/v1/recording.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class RecorderTest : public testing::Test {
 protected:
   void begin( const std::string & path, std::size_t longestQueue = Recorder::kLongestQueue ) {
      recorder.emplace(
         path, [this]( const std::string & why ) { complaints.push_back( why ); }, longestQueue );
   }

   static CounterChanges classes( std::uint64_t from, std::uint64_t to ) {
      CounterChanges changes;
      for ( std::uint64_t n = from; n < to; ++n ) {
         changes.push_back( CountersSet{ "policy", std::to_string( n ), { n, 100 * n } } );
      }
      return changes;
   }

   /// Everything in `path`, which must be whole entries.
   static std::vector< v1::RecordingEntry > entriesOf( const std::string & path ) {
      std::ifstream in( path, std::ios::binary );
      google::protobuf::io::IstreamInputStream stream( &in );
      std::vector< v1::RecordingEntry > entries;
      bool cleanEnd = false;
      v1::RecordingEntry entry;
      while (
         google::protobuf::util::ParseDelimitedFromZeroCopyStream( &entry, &stream, &cleanEnd ) ) {
         entries.push_back( entry );
      }
      EXPECT_TRUE( cleanEnd ) << "half an entry at the end";
      return entries;
   }

   const TemporaryDirectory directory;
   const std::string file = directory / "recording";
   std::vector< std::string > complaints; ///< Of the recorder's thread: only to be read without it.
   std::optional< Recorder > recorder;
};

TEST_F( RecorderTest, ARecordingBeginsWithItsHeader ) {
   begin( file );
   recorder.reset();
   const auto entries = entriesOf( file );
   ASSERT_THAT( entries, SizeIs( 1 ) );
   EXPECT_EQ( entries[0].header().format(), 1U );
   EXPECT_FALSE( entries[0].header().agent_version().empty() );
   EXPECT_GT( entries[0].header().began(), 0U );
}

TEST_F( RecorderTest, BatchesOfEveryKindFollowInOrder ) {
   begin( file );
   recorder->published( classes( 1, 3 ) );
   v1::PublishMplsRoutesRequest routes;
   routes.add_changes()->set_remove_route( 17 );
   recorder->published( routes );
   v1::PublishNexthopGroupsRequest groups;
   groups.add_changes()->set_name( "group" );
   recorder->published( groups );
   recorder->published( { ClassRemoved{ "policy", "1" }, PolicyRemoved{ "policy" } } );
   recorder.reset();

   const auto entries = entriesOf( file );
   ASSERT_THAT( entries, SizeIs( 5 ) );
   const auto & set = entries[1].pbr_counters();
   ASSERT_EQ( set.changes_size(), 2 );
   EXPECT_EQ( set.changes( 1 ).set_class().policy(), "policy" );
   EXPECT_EQ( set.changes( 1 ).set_class().class_name(), "2" );
   EXPECT_EQ( set.changes( 1 ).set_class().packets(), 2U );
   EXPECT_EQ( set.changes( 1 ).set_class().bytes(), 200U );
   EXPECT_EQ( entries[2].mpls_routes().changes( 0 ).remove_route(), 17U );
   EXPECT_EQ( entries[3].nexthop_groups().changes( 0 ).name(), "group" );
   EXPECT_EQ( entries[4].pbr_counters().changes( 0 ).remove_class().class_name(), "1" );
   EXPECT_EQ( entries[4].pbr_counters().changes( 1 ).remove_policy().policy(), "policy" );
   EXPECT_THAT( complaints, IsEmpty() );
}

TEST_F( RecorderTest, TimeNeverGoesBack ) {
   begin( file );
   for ( std::uint64_t n = 0; n < 100; ++n ) { recorder->published( classes( n, n + 1 ) ); }
   recorder.reset();
   std::uint64_t last = 0;
   for ( const auto & entry : entriesOf( file ) ) {
      EXPECT_GE( entry.at_us(), last );
      last = entry.at_us();
   }
}

TEST_F( RecorderTest, AnOldRecordingGivesWay ) {
   std::ofstream( file ) << std::string( 10'000, 'x' );
   begin( file );
   recorder.reset();
   EXPECT_THAT( entriesOf( file ), SizeIs( 1 ) );
}

TEST_F( RecorderTest, AFullDiskEndsTheRecordingWithAWord ) {
   begin( "/dev/full" );
   recorder->published( classes( 0, 10 ) );
   recorder.reset();
   EXPECT_THAT( complaints,
                ElementsAre( "recording to /dev/full has ended: No space left on device; what was "
                             "recorded before can be replayed" ) );
}

TEST_F( RecorderTest, WhatADiskCannotTakeIsAnEndBehindWholeEntries ) {
   begin( file, 100 );
   recorder->published( classes( 0, 10 ) );
   recorder->published( classes( 0, 101 ) );
   recorder->published( classes( 0, 10 ) );
   recorder.reset();
   EXPECT_THAT( entriesOf( file ), SizeIs( 2 ) );
   EXPECT_THAT( complaints, ElementsAre( HasSubstr( "the disk is too slow" ) ) );
}

TEST_F( RecorderTest, AFileThatCannotBeMadeIsNamed ) {
   try {
      begin( directory / "missing/recording" );
      FAIL() << "it was made";
   } catch ( const std::runtime_error & error ) {
      EXPECT_EQ( error.what(), "cannot record to " + ( directory / "missing/recording" ) +
                                  ": No such file or directory" );
   }
}

} // namespace
} // namespace VeloAgent
