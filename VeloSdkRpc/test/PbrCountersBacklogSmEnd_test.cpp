#include <functional>
#include <memory>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BacklogMachineTest.h"
#include "VeloSdkRpc/test/Consumers.h"

/// The order in which the machines let go of what they have.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;

/// Its end is that of the scheduler which it was given to.
class SpeaksAtItsEnd final : public Oru::SlicePolicy {
 public:
   explicit SpeaksAtItsEnd( std::function< void() > speak ) : speak_( std::move( speak ) ) {}
   ~SpeaksAtItsEnd() override { speak_(); }
   void sliceBegins() override {}
   std::uint32_t consult() override { return 1; }

 private:
   const std::function< void() > speak_;
};

/// A scheduler that tells when the last who had it has gone.
Lumo::Ptr< Oru::TaskScheduler > schedulerThatTells( std::function< void() > end ) {
   const auto made = Lumo::makeNode< Oru::TaskScheduler >();
   made->slicePolicyIs( std::make_unique< SpeaksAtItsEnd >( std::move( end ) ) );
   return made;
}

class LastWords final : public RecordingConsumer {
 public:
   explicit LastWords( std::function< void() > speak ) : speak_( std::move( speak ) ) {}
   ~LastWords() override { speak_(); }

 private:
   const std::function< void() > speak_;
};

class BacklogSmEndTest : public BacklogMachineTest {};

/// The scheduler, the two tasks and the backlog tell when they go; each time everything else is
/// looked at. What the test holds too has been let go when the test's is the only reference.
TEST_F( BacklogSmEndTest, EverythingIsLetGoInOrderAfterTheReactionsHaveEnded ) {
   using BacklogKey = PbrCountersBacklogSm::BacklogBacklogOutputKeyType;
   using NovelKey = PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType;
   std::vector< std::string > order;

   const auto machineTable = PbrCountersKeyCompressionTableIs();
   auto machineBacklog = PbrCountersBacklogIs( table );
   sm = pbrCountersBacklogSmFactory( tree.root, machineBacklog, machineTable,
                                     control( kSynchronous ) );
   PbrCountersBacklogSm * const raw = sm.get();
   const auto handle = Lumo::makeNode< Lumo::TraceHandle >( "end" );
   sm->qtHandleIs( handle.get() );
   sm->backlogBacklogOutputSeenIs( BacklogKey( 1 ) );
   sm->shortKeysNovelKeyOutputSeenIs( NovelKey( 1 ) );
   const auto scanState = sm->inputSmScanState();
   const auto outputs = sm->outputState();
   const auto rootMachine = sm->rootSm0();
   const auto isFree = []( const auto & node ) { return node->references() == 1; };

   sm->schedulerIs( schedulerThatTells( [&] {
      order.push_back( "scheduler" );
      EXPECT_FALSE( scanState->publisher()->hasSubscribers() );
      EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
      EXPECT_FALSE( rootMachine->parent() );
      EXPECT_TRUE( raw->isZombie() );
      EXPECT_FALSE( raw->hasNotificationActive() );
      EXPECT_TRUE( isFree( handle ) );
      EXPECT_FALSE( isFree( rootMachine ) || isFree( outputs ) || isFree( scanState ) );
      EXPECT_TRUE( raw->shortKeysNovelKeyOutputSeen()[NovelKey( 1 )] );
   } ) );
   sm->shortKeysNovelKeyOutputReconciliationTaskIs(
      schedulerThatTells( [&] {
         order.push_back( "novel-key task" );
         EXPECT_TRUE( raw->shortKeysNovelKeyOutputSeen()[NovelKey( 1 )] );
      } ),
      3, "novel" );
   sm->backlogBacklogOutputReconciliationTaskIs(
      schedulerThatTells( [&] {
         order.push_back( "backlog task" );
         EXPECT_TRUE( raw->shortKeysNovelKeyOutputSeen().empty() );
         EXPECT_TRUE( raw->backlogBacklogOutputSeen()[BacklogKey( 1 )] );
         EXPECT_FALSE( isFree( rootMachine ) || isFree( outputs ) || isFree( scanState ) );
      } ),
      3, "backlog" );
   machineBacklog->frontendIs( Lumo::makeNode< LastWords >( [&] {
      order.push_back( "backlog" );
      EXPECT_TRUE( isFree( rootMachine ) && isFree( outputs ) && isFree( scanState ) );
      EXPECT_TRUE( isFree( machineTable ) );
      EXPECT_EQ( tree.root->references(), 3U ); // The tree's, the root machine's and the argument.
   } ) );
   machineBacklog = nullptr;
   sm = nullptr;
   EXPECT_THAT( order, ElementsAre( "scheduler", "novel-key task", "backlog task", "backlog" ) );
   EXPECT_EQ( tree.root->references(), 2U );
}

TEST_F( BacklogSmEndTest, ATaskThatWasMadeWhileNotificationsWereOffIsNotHeardAfterTheEnd ) {
   start( kSynchronous );
   const auto rootMachine = sm->rootSm0();
   sm->hasNotificationActiveIs( false );
   rootMachine->task0Is( loop.scheduler(), 3, "late" );
   const auto task = rootMachine->task0();
   sm = nullptr;
   task->scheduleTask();
   EXPECT_EQ( loop.runUntilIdle(), 1U );
}

TEST_F( BacklogSmEndTest, AScanStateThatWasSetWhileNotificationsWereOffIsNotHeardToTheEnd ) {
   start( kSynchronous );
   const auto scanState = sm->inputSmScanState();
   sm->hasNotificationActiveIs( false );
   sm->inputSmScanStateIs( scanState );
   EXPECT_TRUE( scanState->publisher()->hasSubscribers() );
   int told = 0;
   sm->schedulerIs( schedulerThatTells( [&] {
      ++told;
      EXPECT_FALSE( scanState->publisher()->hasSubscribers() );
   } ) );
   sm = nullptr;
   EXPECT_EQ( told, 1 );
}

class KeyTableSmEndTest : public MachineTest< KeyTableMachine > {};

TEST_F( KeyTableSmEndTest, EverythingIsLetGoBeforeWhatItWasMadeWith ) {
   start( kSynchronous );
   const auto scanState = sm->inputSmScanState();
   const auto outputs = sm->outputState();
   const auto rootMachine = sm->rootSm3();
   int told = 0;
   sm->schedulerIs( schedulerThatTells( [&] {
      ++told;
      for ( const unsigned held :
            { scanState->references(), outputs->references(), rootMachine->references() } ) {
         EXPECT_EQ( held, 1U ); // The test's.
      }
      EXPECT_FALSE( scanState->publisher()->hasSubscribers() );
      EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
   } ) );
   sm = nullptr;
   EXPECT_EQ( told, 1 );
}

} // namespace
} // namespace VeloSdkRpc::test
