#include "agent/nftables/NftReader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;

/// Collects findings on the reader's thread and hands them to the test one by one.
class Findings {
 public:
   void operator()( NftFinding finding ) {
      {
         const std::lock_guard guard( mutex_ );
         arrived_.push_back( std::move( finding ) );
      }
      more_.notify_one();
   }

   NftFinding next() {
      std::unique_lock lock( mutex_ );
      more_.wait( lock, [this] { return taken_ < arrived_.size(); } );
      return arrived_[taken_++];
   }

   std::size_t arrived() {
      const std::lock_guard guard( mutex_ );
      return arrived_.size();
   }

 private:
   std::mutex mutex_;
   std::condition_variable more_;
   std::vector< NftFinding > arrived_;
   std::size_t taken_ = 0;
};

/// A table with one counter that is one higher at each reading.
class BusyTable {
 public:
   NftCounters operator()() {
      const std::uint64_t n = ++readings_;
      return { { { "web", { { "http", { n, n } } } } }, {} };
   }

 private:
   std::uint64_t readings_ = 0;
};

std::uint64_t packetsIn( const NftFinding & finding ) {
   return std::get< CountersSet >( finding.changes.at( 0 ) ).counters.packets;
}

TEST( NftReader, DeliversTheFirstFindingAndGoesOnReading ) {
   NftPoller poller( BusyTable(), 1ms );
   NftFinding first = poller.firstPoll();
   Findings findings;
   NftReader reader( std::move( poller ), std::ref( findings ) );
   reader.start( std::move( first ) );
   for ( std::uint64_t n = 1; n <= 5; ++n ) {
      EXPECT_EQ( packetsIn( findings.next() ), n );
      reader.changesApplied();
   }
}

TEST( NftReader, ReadsNothingWhileChangesAreBeingApplied ) {
   std::atomic< int > readings = 0;
   NftPoller poller(
      [&readings, table = BusyTable()]() mutable {
         ++readings;
         return table();
      },
      1ms );
   NftFinding first = poller.firstPoll();
   Findings findings;
   NftReader reader( std::move( poller ), std::ref( findings ) );
   reader.start( std::move( first ) );
   findings.next();
   // The thread is now between its delivery and the wait for the answer, whichever it reached.
   EXPECT_EQ( readings, 1 );
   EXPECT_EQ( findings.arrived(), 1U );
   reader.changesApplied();
   EXPECT_EQ( packetsIn( findings.next() ), 2U );
   EXPECT_EQ( readings, 2 );
}

TEST( NftReader, FailuresAreDeliveredWithoutWaitingForAnAnswer ) {
   NftPoller poller( []() -> NftCounters { throw NftJsonError( "no" ); }, 1ms );
   Findings findings;
   NftReader reader( std::move( poller ), std::ref( findings ) );
   reader.start( {} );
   EXPECT_EQ( findings.next().wait, 1ms );
   EXPECT_EQ( findings.next().wait, 2ms );
}

TEST( NftReader, EndsAtOnceHoweverLongTheInterval ) {
   NftPoller poller( BusyTable(), 24h );
   NftFinding first = poller.firstPoll();
   Findings findings;
   {
      NftReader reader( std::move( poller ), std::ref( findings ) );
      reader.start( std::move( first ) );
      findings.next();
   }
   EXPECT_EQ( findings.arrived(), 1U );
}

TEST( NftReader, EndsWhileItsChangesAreStillBeingApplied ) {
   NftPoller poller( BusyTable(), 1ms );
   NftFinding first = poller.firstPoll();
   Findings findings;
   NftReader reader( std::move( poller ), std::ref( findings ) );
   reader.start( std::move( first ) );
   findings.next();
}

TEST( NftReader, OneThatWasNeverStartedEndsToo ) {
   Findings findings;
   const NftReader reader( NftPoller( BusyTable(), 1ms ), std::ref( findings ) );
   EXPECT_EQ( findings.arrived(), 0U );
}

} // namespace
} // namespace VeloAgent
