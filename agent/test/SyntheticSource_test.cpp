#include "agent/SyntheticSource.h"
#include "agent/test/AppliedChanges.h"

#include <gtest/gtest.h>

#include <functional>

namespace VeloAgent {
namespace {

/// Takes what the source finds, and answers when the test wants it to.
class SyntheticSourceTest : public testing::Test, public SourceListener {
 protected:
   void changesFound( CounterChanges changes ) override {
      ++portions_;
      found_ += changes.size();
      tree_.apply( changes );
      onFound_();
   }
   void sourceFailed( const std::string &, std::chrono::milliseconds ) override { FAIL(); }
   void sourceRecovered() override { FAIL(); }
   void noted( const std::string & ) override { FAIL(); }

   /// Runs the loop; at each portion `onFound` is called, which may answer with applied().
   void run( const SyntheticOptions & options, std::function< void() > onFound ) {
      onFound_ = std::move( onFound );
      source_.emplace( loop_, *this, options );
      loop_.post( [this] { source_->start(); } );
      loop_.run();
   }
   void applied() {
      loop_.post( [this] { source_->changesApplied(); } );
   }

   std::function< void() > onFound_;
   EventLoop loop_{ Lumo::makeNode< Oru::TaskScheduler >() };
   std::optional< SyntheticSource > source_;
   AppliedChanges tree_;
   std::size_t portions_ = 0;
   std::size_t found_ = 0;
};

TEST_F( SyntheticSourceTest, ThePopulationComesInPortionsEachAfterTheLastIsApplied ) {
   run( { .policies = 50, .classes = 500, .changesPerSecond = 0 }, [this] {
      if ( found_ == 25'000 ) { loop_.stop(); }
      applied();
   } );
   EXPECT_EQ( portions_, 3U );
   EXPECT_EQ( tree_.now().size(), 50U );
}

TEST_F( SyntheticSourceTest, NothingComesBeforeTheAnswer ) {
   run( { .policies = 50, .classes = 500, .changesPerSecond = 0 },
        [this] { loop_.post( [this] { loop_.stop(); } ); } );
   EXPECT_EQ( portions_, 1U );
}

TEST_F( SyntheticSourceTest, AfterThePopulationChangesComeWithTime ) {
   run( { .policies = 2, .classes = 3, .changesPerSecond = 1'000'000, .churnPercent = 0 }, [this] {
      if ( found_ > 1'000 ) { loop_.stop(); }
      applied();
   } );
   EXPECT_GT( portions_, 1U );
   EXPECT_EQ( tree_.now().size(), 2U );
}

} // namespace
} // namespace VeloAgent
