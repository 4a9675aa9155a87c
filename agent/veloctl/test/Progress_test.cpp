#include "agent/veloctl/Progress.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>

namespace VeloCtl {
namespace {

using namespace std::chrono_literals;

class ProgressTest : public testing::Test {
 protected:
   void begins( bool terminal ) {
      progress.emplace( Streams{ .out = out, .err = err, .errIsTerminal = terminal }, "published",
                        50'000, [this] { return now; } );
   }
   /// What has been said since the last time.
   std::string said() {
      const std::string text = err.str();
      err.str( "" );
      return text;
   }

   std::ostringstream out;
   std::ostringstream err;
   Progress::Time now;
   std::optional< Progress > progress;
};

TEST_F( ProgressTest, OneLineIsWrittenOverAndOverAndTakenAwayInTheEnd ) {
   begins( true );
   now += 200ms;
   progress->doneIs( 1000 );
   EXPECT_EQ( said(), "\r\x1b[Kpublished 1000 of 50000" );
   now += 200ms;
   progress->doneIs( 2000 );
   EXPECT_EQ( said(), "\r\x1b[Kpublished 2000 of 50000" );
   progress.reset();
   EXPECT_EQ( said(), "\r\x1b[K" );
   EXPECT_EQ( out.str(), "" );
}

TEST_F( ProgressTest, ItIsShownNoMoreOftenThanAnybodyCouldRead ) {
   begins( true );
   for ( std::uint64_t done = 1; done <= 1000; ++done ) {
      now += 1ms;
      progress->doneIs( done );
   }
   const std::string text = said();
   EXPECT_EQ( std::count( text.begin(), text.end(), '\r' ), 5 );
}

TEST_F( ProgressTest, WhereNobodyLooksNothingIsSaid ) {
   begins( false );
   now += 1h;
   progress->doneIs( 1000 );
   progress.reset();
   EXPECT_EQ( said(), "" );
}

} // namespace
} // namespace VeloCtl
