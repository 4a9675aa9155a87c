#include "agent/veloctl/MplsLive.h"
#include "agent/veloctl/PbrLive.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

#include <gmock/gmock.h>
#include <sstream>

namespace VeloCtl {
namespace {

using namespace std::chrono_literals;
using namespace velo::rpc::v1;
using testing::HasSubstr;
using testing::Not;

constexpr const char * kFirst = "\x1b[2J\x1b[H";
constexpr const char * kAgain = "\x1b[H";

/// What is drawn on a screen of a certain size, by a clock that stands still.
class Stage {
 public:
   Screen screen() {
      return { out_, [this] { return size; } };
   }
   std::function< std::chrono::steady_clock::time_point() > clock() {
      return [this] { return now; };
   }
   /// What has been drawn since the last time.
   std::string drawn() {
      std::string text = out_.str();
      out_.str( "" );
      return text;
   }

   ScreenSize size{ 10, 60 };
   std::chrono::steady_clock::time_point now{};

 private:
   std::ostringstream out_;
};

class PbrLiveTest : public testing::Test {
 protected:
   PbrLiveTest() { live.readerIs( reader ); }

   void opened( PbrCountersWatchResponse::Opened::Outcome outcome ) {
      PbrCountersWatchResponse message;
      message.mutable_opened()->set_outcome( outcome );
      reader.take( message );
   }

   void counted( std::uint64_t key, std::uint64_t packets, std::uint64_t bytes ) {
      PbrCountersWatchResponse message;
      auto & record = *message.mutable_batch()->add_records();
      record.set_short_key( key );
      record.mutable_long_key()->set_policy( "web" );
      record.mutable_long_key()->set_class_name( "c" + std::to_string( key ) );
      record.mutable_counters()->set_packets( packets );
      record.mutable_counters()->set_bytes( bytes );
      reader.take( message );
   }

   std::string after( std::chrono::milliseconds time ) {
      stage.now += time;
      live.tick();
      return stage.drawn();
   }

   Stage stage;
   PbrLive live{ stage.screen(), "PBR", 1000ms, stage.clock() };
   PbrReader reader{ live, UINT64_MAX };
};

TEST_F( PbrLiveTest, TheBusiestClassComesFirstWithItsRates ) {
   opened( PbrCountersWatchResponse::Opened::OUTCOME_SNAPSHOT );
   counted( 1, 100, 1000 );
   counted( 2, 200, 2000 );
   EXPECT_EQ( after( 999ms ), "" );
   EXPECT_EQ( after( 1001ms ),
              std::string( kFirst ) +
                 "PBR: taking the snapshot\x1b[K\n"
                 "2 classes, 1 records/s\x1b[K\n"
                 "KEY  POLICY  CLASS  RULE  PACKETS  BYTES  PACKETS/S  BYTES/S\x1b[K\n"
                 "  1  web     c1               100   1000          0        0\x1b[K\n"
                 "  2  web     c2               200   2000          0        0\x1b[K\n"
                 "\x1b[J" );
   counted( 2, 300, 7000 );
   EXPECT_EQ( after( 2000ms ),
              std::string( kAgain ) +
                 "PBR: taking the snapshot\x1b[K\n"
                 "2 classes, 0 records/s\x1b[K\n"
                 "KEY  POLICY  CLASS  RULE  PACKETS  BYTES  PACKETS/S  BYTES/S\x1b[K\n"
                 "  2  web     c2               300   7000         50     2500\x1b[K\n"
                 "  1  web     c1               100   1000          0        0\x1b[K\n"
                 "\x1b[J" );
}

TEST_F( PbrLiveTest, NoMoreIsShownThanThereIsRoomFor ) {
   opened( PbrCountersWatchResponse::Opened::OUTCOME_SNAPSHOT );
   for ( std::uint64_t key = 1; key <= 100; ++key ) { counted( key, 0, 0 ); }
   stage.size = { 6, 20 };
   const std::string drawn = after( 1000ms );
   EXPECT_THAT( drawn, HasSubstr( "100 classes" ) );
   EXPECT_THAT( drawn, HasSubstr( "  2  web     c2     \x1b[K\n" ) );
   EXPECT_THAT( drawn, Not( HasSubstr( "c3" ) ) );
}

TEST_F( PbrLiveTest, CountersThatWereClearedHaveNoRate ) {
   opened( PbrCountersWatchResponse::Opened::OUTCOME_SNAPSHOT );
   counted( 1, 100, 1000 );
   after( 1000ms );
   counted( 1, 5, 50 );
   EXPECT_THAT( after( 1000ms ),
                HasSubstr( "  1  web     c1                 5     50          0        0" ) );
}

TEST_F( PbrLiveTest, AnInterruptionIsShownAtOnce ) {
   live.interrupted( "gone", 200ms );
   EXPECT_THAT( stage.drawn(), HasSubstr( "PBR: gone; trying again in 200 ms" ) );
}

TEST( MplsLive, TheRouteThatWasToldLastComesFirst ) {
   Stage stage;
   MplsLive live( stage.screen(), 1000ms, stage.clock() );
   for ( std::uint32_t label = 16; label < 18; ++label ) {
      MplsProgrammedRoute route;
      route.set_label( label );
      route.set_nexthop_group_name( "x\x1b" );
      live.route( route );
   }
   live.tick();
   EXPECT_EQ( stage.drawn(), "" );
   stage.now += 2000ms;
   live.tick();
   EXPECT_EQ( stage.drawn(),
              std::string( kFirst ) +
                 "MPLS routes: connecting\x1b[K\n"
                 "2 routes, 1 routes/s\x1b[K\n"
                 "LABEL  GROUP  NAME   FEC  ROUTE VERSION  GROUP VERSION  ACK\x1b[K\n"
                 "   17      0  x\\x1b    0              0              0    0\x1b[K\n"
                 "   16      0  x\\x1b    0              0              0    0\x1b[K\n"
                 "\x1b[J" );
}

} // namespace
} // namespace VeloCtl
