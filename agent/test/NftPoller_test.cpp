#include "agent/nftables/NftPoller.h"

#include "agent/nftables/NftTable.h"

#include <gmock/gmock.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A table whose next reading the test decides.
class NftPollerTest : public testing::Test {
 protected:
   void tableHolds( CounterSnapshot counters, std::vector< std::string > misnamed = {} ) {
      next_ = [=] { return NftCounters{ counters, misnamed }; };
   }
   void tableIsGone() {
      next_ = []() -> NftCounters { throw NftNoSuchTable( { "inet", "t" }, {} ); };
   }
   void readingFails( std::string why ) {
      next_ = [=]() -> NftCounters { throw NftReadError( why ); };
   }
   void listingIsBroken() {
      next_ = []() -> NftCounters { throw NftJsonError( "half a listing" ); };
   }

   NftPoller poller_{ [this] { return next_(); }, 100ms };

 private:
   NftPoller::Read next_;
};

const CounterSnapshot kOneClass = { { "web", { { "http", { 1, 10 } } } } };
const CounterChange kOneClassSet = CountersSet{ "web", "http", { 1, 10 } };

TEST_F( NftPollerTest, TheFirstReadingSetsEverything ) {
   tableHolds( kOneClass );
   const NftFinding finding = poller_.firstPoll();
   EXPECT_THAT( finding.changes, ElementsAre( kOneClassSet ) );
   EXPECT_EQ( finding.wait, 100ms );
}

TEST_F( NftPollerTest, AnUnchangedTableIsNoNews ) {
   tableHolds( kOneClass );
   poller_.firstPoll();
   EXPECT_FALSE( poller_.poll().hasNews() );
}

TEST_F( NftPollerTest, AtStartUpEveryFailureIsTheCallers ) {
   tableIsGone();
   EXPECT_THROW( poller_.firstPoll(), NftNoSuchTable );
   readingFails( "no" );
   EXPECT_THROW( poller_.firstPoll(), NftReadError );
}

TEST_F( NftPollerTest, ACounterThatWentBackwardsIsPassedOnAsItIs ) {
   tableHolds( { { "web", { { "http", { 9, 90 } } } } } );
   poller_.firstPoll();
   tableHolds( kOneClass );
   EXPECT_THAT( poller_.poll().changes, ElementsAre( kOneClassSet ) );
}

TEST_F( NftPollerTest, AFailureLosesNothingThatIsKnown ) {
   tableHolds( kOneClass );
   poller_.firstPoll();
   readingFails( "the kernel is busy" );
   const NftFinding failed = poller_.poll();
   EXPECT_THAT( failed.changes, IsEmpty() );
   EXPECT_EQ( failed.failure, "the kernel is busy" );

   tableHolds( kOneClass );
   const NftFinding recovered = poller_.poll();
   EXPECT_THAT( recovered.changes, IsEmpty() );
   EXPECT_TRUE( recovered.recovered );
   EXPECT_FALSE( poller_.poll().hasNews() );
}

TEST_F( NftPollerTest, AListingThatCannotBeReadIsAFailureToo ) {
   tableHolds( kOneClass );
   poller_.firstPoll();
   listingIsBroken();
   EXPECT_EQ( poller_.poll().failure, "half a listing" );
}

TEST_F( NftPollerTest, FailuresWaitTwiceAsLongEachUpToABound ) {
   readingFails( "no" );
   EXPECT_EQ( poller_.poll().wait, 100ms );
   EXPECT_EQ( poller_.poll().wait, 200ms );
   EXPECT_EQ( poller_.poll().wait, 400ms );
   for ( int n = 0; n < 100; ++n ) { poller_.poll(); }
   EXPECT_EQ( poller_.poll().wait, NftPoller::kLongestWait );

   tableHolds( {} );
   EXPECT_EQ( poller_.poll().wait, 100ms );
   readingFails( "again" );
   EXPECT_EQ( poller_.poll().wait, 100ms );
}

TEST_F( NftPollerTest, AnIntervalBeyondTheBoundIsNeverShortened ) {
   NftPoller slow( []() -> NftCounters { throw NftReadError( "no" ); }, 60s );
   EXPECT_EQ( slow.poll().wait, 60s );
   EXPECT_EQ( slow.poll().wait, 60s );
}

TEST_F( NftPollerTest, AVanishedTableTakesItsPolicyMapsAndIsNoFailure ) {
   tableHolds( kOneClass );
   poller_.firstPoll();
   tableIsGone();
   const NftFinding gone = poller_.poll();
   EXPECT_THAT( gone.changes, ElementsAre( CounterChange( PolicyRemoved{ "web" } ) ) );
   EXPECT_FALSE( gone.failure );
   EXPECT_EQ( gone.wait, 100ms );
   EXPECT_THAT( gone.notes, ElementsAre( HasSubstr( "no table inet/t" ) ) );

   EXPECT_FALSE( poller_.poll().hasNews() ) << "told once";
}

TEST_F( NftPollerTest, ATableThatIsBackBringsItsPolicyMapsBack ) {
   tableHolds( kOneClass );
   poller_.firstPoll();
   tableIsGone();
   poller_.poll();
   tableHolds( kOneClass );
   const NftFinding back = poller_.poll();
   EXPECT_THAT( back.changes, ElementsAre( kOneClassSet ) );
   EXPECT_THAT( back.notes, ElementsAre( "the table is back" ) );
}

TEST_F( NftPollerTest, AMisnamedCounterIsReportedOnceUntilItWasGone ) {
   tableHolds( {}, { "plain" } );
   EXPECT_THAT(
      poller_.firstPoll().notes,
      ElementsAre( "the counter \"plain\" is not called POLICY/CLASS and is passed over" ) );
   EXPECT_FALSE( poller_.poll().hasNews() );
   tableHolds( {} );
   EXPECT_FALSE( poller_.poll().hasNews() );
   tableHolds( {}, { "plain" } );
   EXPECT_EQ( poller_.poll().notes.size(), 1U );
}

} // namespace
} // namespace VeloAgent
