#include "agent/TreeWriter.h"
#include "agent/test/TreeSnapshot.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace VeloAgent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Counts what a watcher of one entity is told, and may throw at it.
class Watcher final : public Lumo::Subscriber {
 public:
   explicit Watcher( const Quon::Entity & entity ) : Lumo::Subscriber( &Watcher::dispatch ) {
      entity.publisher()->subscriberAdd( *this );
   }

   int told = 0;
   bool throws = false;

 private:
   static void dispatch( Lumo::Publisher *, Lumo::Subscriber * slot, short, const void *,
                         const void * ) {
      auto * const self = static_cast< Watcher * >( slot );
      ++self->told;
      if ( self->throws ) { throw std::runtime_error( "no patience" ); }
   }
};

class TreeWriterTest : public testing::Test {
 protected:
   TreeWriterTest() { itemsPerSlice( 1'000'000 ); }

   void itemsPerSlice( std::uint32_t items ) {
      scheduler_->slicePolicyIs( std::make_unique< Oru::YieldsAfter >( items - 1 ) );
   }

   void handOver( CounterChanges changes ) {
      writer_->apply( std::move( changes ), [this] { ++applied_; } );
   }
   void apply( CounterChanges changes ) {
      handOver( std::move( changes ) );
      scheduler_->runUntilIdle();
   }

   CounterSnapshot tree() const { return snapshotOf( *root_ ); }

   CounterChanges classes( const std::string & policy, int count ) const {
      CounterChanges changes;
      for ( int n = 0; n < count; ++n ) {
         changes.push_back( CountersSet{ policy, "class" + std::to_string( n ), { 1, 64 } } );
      }
      return changes;
   }

   Lumo::Ptr< Oru::TaskScheduler > scheduler_ = Lumo::makeNode< Oru::TaskScheduler >();
   Lumo::Ptr< TreeWriter::Root > root_ = Lumo::makeNode< TreeWriter::Root >();
   int applied_ = 0;
   std::vector< std::string > failures_;
   Lumo::Ptr< TreeWriter > writer_ = Lumo::makeNode< TreeWriter >(
      scheduler_, root_, [this]( const std::string & what ) { failures_.push_back( what ); } );
};

TEST_F( TreeWriterTest, SettingCreatesWhatIsMissing ) {
   apply( { CountersSet{ "web", "http", { 12, 1008 } } } );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "web", { { "http", { 12, 1008 } } } } } ) );
   EXPECT_EQ( applied_, 1 );
}

TEST_F( TreeWriterTest, SettingAgainKeepsTheEntity ) {
   apply( { CountersSet{ "web", "http", { 12, 1008 } } } );
   const auto & classes = root_->policyMapCounters()[PolicyMap::Counters::PolicyMapKey( "web" )]
                             ->value()
                             ->classCounters();
   const auto entity = classes[Lumo::String( "http" )]->value();
   apply( { CountersSet{ "web", "http", { 5, 100 } } } );
   EXPECT_EQ( classes[Lumo::String( "http" )]->value(), entity );
   EXPECT_EQ( entity->countData().packets(), 5U );
}

TEST_F( TreeWriterTest, WhatIsNewAppearsWithItsCountersInOneNotification ) {
   Watcher rootWatcher( *root_ );
   apply( { CountersSet{ "web", "http", { 1, 64 } } } );
   const auto policyMap =
      root_->policyMapCounters()[PolicyMap::Counters::PolicyMapKey( "web" )]->value();
   Watcher watcher( *policyMap );
   apply( { CountersSet{ "web", "https", { 1, 64 } } } );
   EXPECT_EQ( watcher.told, 1 );
   EXPECT_EQ( rootWatcher.told, 1 );
}

TEST_F( TreeWriterTest, RemovingWhatIsNotThereDoesNothing ) {
   apply( { ClassRemoved{ "web", "http" }, PolicyRemoved{ "web" }, CountersSet{ "web", "http", {} },
            ClassRemoved{ "web", "ftp" } } );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "web", { { "http", {} } } } } ) );
   EXPECT_THAT( failures_, ElementsAre() );
}

TEST_F( TreeWriterTest, ASliceEndsWhenTheSchedulerSaysSo ) {
   itemsPerSlice( 10 );
   handOver( classes( "web", 25 ) );
   std::vector< std::size_t > present;
   while ( scheduler_->runOne() ) { present.push_back( tree()["web"].size() ); }
   EXPECT_THAT( present, ElementsAre( 10, 20, 25 ) );
   EXPECT_EQ( applied_, 1 );
   EXPECT_EQ( writer_->taskWorkCount(), 25U );
   EXPECT_EQ( writer_->taskWorkPending(), 0U );
}

TEST_F( TreeWriterTest, ALargePolicyMapGoesInSlicesTooAndItsClassesFirst ) {
   apply( classes( "web", 1000 ) );
   Watcher watcher( *root_ );
   itemsPerSlice( 10 );
   handOver( { PolicyRemoved{ "web" }, CountersSet{ "other", "class", {} } } );
   int slices = 0;
   while ( scheduler_->runOne() ) { ++slices; }
   EXPECT_GT( slices, 90 );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "other", { { "class", {} } } } } ) );
   EXPECT_EQ( watcher.told, 2 ) << "one policy map went, one came";
}

TEST_F( TreeWriterTest, TheNextChangesMayBeHandedOverFromInsideTheAnswer ) {
   int portions = 0;
   std::function< void() > next = [&] {
      writer_->apply( classes( "p" + std::to_string( portions ), 2 ), [&] {
         if ( ++portions < 3 ) { next(); }
      } );
   };
   next();
   scheduler_->runUntilIdle();
   EXPECT_EQ( portions, 3 );
   EXPECT_EQ( tree().size(), 3U );
}

TEST_F( TreeWriterTest, PortionsOfSeveralWritersAreAppliedOneAfterTheOther ) {
   itemsPerSlice( 2 );
   std::vector< std::string > applied;
   for ( const std::string writer : { "first", "second", "third" } ) {
      writer_->apply( classes( "web", 5 ), [&applied, writer] { applied.push_back( writer ); } );
      writer_->apply( { PolicyRemoved{ "web" }, CountersSet{ writer, "class", {} } },
                      [this, &applied, writer] {
                         EXPECT_EQ( tree().count( "web" ), 0U );
                         applied.push_back( writer + " again" );
                      } );
   }
   EXPECT_THAT( applied, ElementsAre() );
   scheduler_->runUntilIdle();
   EXPECT_THAT( applied, ElementsAre( "first", "first again", "second", "second again", "third",
                                      "third again" ) );
   EXPECT_EQ( tree().size(), 3U );
}

TEST_F( TreeWriterTest, APortionOfNothingIsAnsweredToo ) {
   handOver( {} );
   EXPECT_EQ( applied_, 0 );
   scheduler_->runUntilIdle();
   EXPECT_EQ( applied_, 1 );
}

TEST_F( TreeWriterTest, AWatcherThatThrowsIsReportedAndNothingIsLost ) {
   Watcher watcher( *root_ );
   watcher.throws = true;
   apply( { CountersSet{ "web", "http", { 1, 64 } }, CountersSet{ "mail", "smtp", { 2, 128 } } } );
   EXPECT_THAT( failures_, ElementsAre( "no patience", "no patience" ) );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "mail", { { "smtp", { 2, 128 } } } },
                                         { "web", { { "http", { 1, 64 } } } } } ) );
   EXPECT_EQ( applied_, 1 );
}

TEST_F( TreeWriterTest, AWatcherThatThrowsAtEveryStepCannotKeepAPolicyMapAlive ) {
   apply( classes( "web", 200 ) );
   const auto policyMap =
      root_->policyMapCounters()[PolicyMap::Counters::PolicyMapKey( "web" )]->value();
   Watcher watcher( *policyMap );
   watcher.throws = true;
   apply( { PolicyRemoved{ "web" } } );
   EXPECT_EQ( tree(), CounterSnapshot() );
   EXPECT_EQ( failures_.size(), 136U ) << "64 of 200 go with the policy map";
}

TEST_F( TreeWriterTest, ANameThatIsTooLongIsReportedAndTheOthersGoOn ) {
   apply( { CountersSet{ "web", std::string( 70'000, 'x' ), {} },
            CountersSet{ std::string( 70'000, 'x' ), "c", {} },
            CountersSet{ "web", "http", {} } } );
   EXPECT_THAT( failures_, ElementsAre( HasSubstr( "maxLength" ), HasSubstr( "maxLength" ) ) );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "web", { { "http", {} } } } } ) );
}

} // namespace
} // namespace VeloAgent
