#include "agent/stream/PbrLines.h"

#include "agent/JsonLineFormat.h"
#include "agent/test/StreamWorld.h"

#include <climits>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace VeloAgent {
namespace {

/// The stream as lines in a pipe.
class PbrLinesTest : public testing::Test, protected test::StreamWorld {
 protected:
   struct Pipe {
      Pipe() {
         if ( ::pipe2( fds, O_NONBLOCK ) != 0 ) { throw std::runtime_error( "no pipe" ); }
      }
      ~Pipe() {
         ::close( fds[0] );
         ::close( fds[1] );
      }
      int fds[2];
   };

   /// What was written since the last time, when all has been told.
   std::vector< nlohmann::json > lines() {
      std::vector< nlohmann::json > all;
      bool moved = true;
      while ( moved ) {
         settle();
         eventLoop_.context().restart();
         moved = eventLoop_.context().poll() > 0 || loop.pending() > 0;
         std::string text( 65536, '\0' );
         const ssize_t size = ::read( pipe_.fds[0], text.data(), text.size() );
         if ( size > 0 ) { read_.append( text, 0, static_cast< std::size_t >( size ) ); }
         moved = moved || size > 0;
      }
      std::size_t end;
      while ( ( end = read_.find( '\n' ) ) != std::string::npos ) {
         all.push_back( nlohmann::json::parse( read_.substr( 0, end ) ) );
         read_.erase( 0, end + 1 );
      }
      return all;
   }
   void readerFallsAsleep() {
      const std::string page( PIPE_BUF, ' ' );
      while ( ::write( pipe_.fds[1], page.data(), page.size() ) > 0 ) {}
   }

   /// Another scheduler's: it only waits for the pipe.
   EventLoop eventLoop_{ Lumo::makeNode< Oru::TaskScheduler >() };
   const Pipe pipe_;
   std::string read_;
   JsonLineFormat format_;
   Output output_{ eventLoop_, pipe_.fds[1], [] { FAIL(); } };
   PbrLines lines_{ *fanout, clients, clock, format_, output_ };
};

TEST_F( PbrLinesTest, ARecordIsALineAndTheEndOfABatchIsALine ) {
   tree.addClass( "web", "http", 12 );
   const auto written = lines();
   ASSERT_EQ( written.size(), 2U );
   EXPECT_EQ( written[0].dump(),
              R"({"data":{"bytes":1200,"packets":12},"deleted":false,"event":"record",)"
              R"("flags":{"delete_key":false,"encode_long_key":true},)"
              R"("long_key":{"acl_rule":"","class":"http","policy":"web"},"short_key":1})" );
   EXPECT_EQ( written[1].dump(), R"({"event":"push","records":1})" );
}

TEST_F( PbrLinesTest, WhereNothingIsToldThereIsNoLine ) {
   fanout->push();
   EXPECT_TRUE( lines().empty() );
}

TEST_F( PbrLinesTest, ALongKeyIsToldOnce ) {
   tree.addClass( "web", "http", 12 );
   lines();
   tree.count( "web", "http", 13 );
   const auto written = lines();
   EXPECT_FALSE( written.at( 0 ).contains( "long_key" ) );
   EXPECT_FALSE( written[0]["flags"]["encode_long_key"] );
}

TEST_F( PbrLinesTest, ADeletionIsToldAndTheKeyForgotten ) {
   tree.addClass( "web", "http", 12 );
   lines();
   EXPECT_EQ( lines_.report().told, 1U );
   tree.removeClass( "web", "http" );
   const auto written = lines();
   EXPECT_TRUE( written.at( 0 )["data"].is_null() );
   EXPECT_TRUE( written[0]["deleted"] );
   EXPECT_TRUE( written[0]["flags"]["delete_key"] );
   EXPECT_EQ( lines_.report().told, 0U );
}

TEST_F( PbrLinesTest, AClassWithoutCountersHasNullData ) {
   using VeloSdkRpc::PbrCounters;
   const VeloSdkRpc::PbrCountersKey key( PolicyMap::Counters::PolicyMapKey( "web" ), "c", {} );
   fanout->appendItem( PbrCounters( 7, key, nullptr, false ), {} );
   fanout->push();
   const auto line = lines().at( 0 );
   EXPECT_TRUE( line["data"].is_null() );
   EXPECT_FALSE( line["deleted"] );
}

TEST_F( PbrLinesTest, NoRecordFollowsTheLastOneAllowedAndTheLastLineIsTheEndOfItsBatch ) {
   loop.endlessSlices();
   int full = 0;
   lines_.maxRecordsAre( 2, [&full] { ++full; } );
   for ( const char * name : { "a", "b", "c" } ) { tree.addClass( "web", name ); }
   const auto written = lines();
   EXPECT_EQ( full, 1 );
   ASSERT_EQ( written.size(), 3U );
   EXPECT_EQ( written[2].dump(), R"({"event":"push","records":2})" );
   tree.addClass( "web", "d" );
   EXPECT_TRUE( lines().empty() );
   EXPECT_EQ( full, 1 );
}

TEST_F( PbrLinesTest, AReaderThatSleepsIsToldTheLatestWhenItAwakes ) {
   tree.addClass( "web", "http" );
   lines();
   readerFallsAsleep();
   for ( std::uint64_t n = 1; n <= 10'000; ++n ) {
      tree.count( "web", "http", n );
      settle();
   }
   EXPECT_FALSE( output_.hasRoom() );
   const auto written = lines();
   EXPECT_LT( written.size(), 4000U ) << "what there was room for, and the latest";
   EXPECT_EQ( written.at( written.size() - 2 )["data"]["packets"], 10'000 );
}

TEST_F( PbrLinesTest, ItIsDoneWhenEverythingIsToldAndWritten ) {
   tree.addClass( "web", "http" );
   int done = 0;
   lines_.finish( [&done] { ++done; } );
   EXPECT_EQ( done, 0 );
   EXPECT_EQ( lines().size(), 2U );
   EXPECT_EQ( done, 1 );
}

TEST_F( PbrLinesTest, StoppedInABatchItEndsTheBatch ) {
   for ( const char * name : { "a", "b", "c" } ) { tree.addClass( "web", name ); }
   loop.alwaysYields();
   while ( lines_.report().recordsSent == 0 ) { ASSERT_TRUE( loop.runOne() ); }
   lines_.stop();
   const auto written = lines();
   EXPECT_EQ( written.back()["event"], "push" );
   EXPECT_LT( written.size(), 4U );
}

} // namespace
} // namespace VeloAgent
