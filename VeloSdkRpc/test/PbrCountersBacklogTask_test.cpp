#include "VeloSdkRpc/test/BacklogTest.h"

/// The object that binds a backlog to a task.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class BacklogTaskTest : public BacklogTest {
 protected:
   Lumo::Ptr< PbrCountersBacklogTask > binding = PbrCountersBacklogTaskIs( "stream", backlog );
};

TEST_F( BacklogTaskTest, ItIsInitializedListensAndHasAskedForARun ) {
   EXPECT_TRUE( binding->initialized() );
   EXPECT_TRUE( binding->hasNotificationActive() );
   EXPECT_EQ( binding->pbrCountersBacklogPtr(), backlog );
   EXPECT_EQ( binding->task()->taskName(), "stream" );
   EXPECT_EQ( binding->task()->taskPriority(), 3 );
   EXPECT_EQ( binding->task()->taskScheduler(), loop.scheduler() );
   EXPECT_EQ( loop.pending(), 1U );
}

TEST_F( BacklogTaskTest, AChangeOfTheBacklogAsksForARunWhichDelivers ) {
   loop.runUntilIdle();
   watch();
   EXPECT_EQ( loop.pending(), 0U ); // Another attribute.
   file( { 1, 2 } );
   EXPECT_EQ( loop.pending(), 1U );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), UnorderedElementsAre( 1, 2 ) );
}

TEST_F( BacklogTaskTest, UntilInitializedRunsDoNothing ) {
   const auto idle = Lumo::makeNode< PbrCountersBacklogTask >( "idle", backlog );
   binding = nullptr;
   watch();
   file( { 1 } );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   EXPECT_EQ( consumer->pushes, 0 );
   idle->handleInitialized();
   idle->onTask();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogTaskTest, ATaskWithTheSameSchedulerAndNameIsKeptAndOnlyItsPriorityChanges ) {
   watch();
   const Lumo::Ptr< Oru::Task > before = binding->task();
   EXPECT_EQ( binding->taskIs( loop.scheduler(), 5, "stream" ), before );
   EXPECT_EQ( before->taskPriority(), 5 );
   EXPECT_EQ( consumer->pushes, 0 );
}

TEST_F( BacklogTaskTest, SwitchingNotificationsToWhatTheyAreLeavesTheTaskAlone ) {
   binding->hasNotificationActiveIs( false );
   binding->taskIs( loop.scheduler(), 3, "another" ); // Subscribes to the new one.
   binding->hasNotificationActiveIs( false );
   EXPECT_TRUE( binding->task()->publisher()->hasSubscribers() );
}

TEST_F( BacklogTaskTest, AnotherNameMakesANewTaskAndRunsAtOnce ) {
   watch();
   const Lumo::Ptr< Oru::Task > before = binding->task();
   const Lumo::Ptr< Oru::Task > now = binding->taskIs( loop.scheduler(), 3, "other" );
   EXPECT_NE( now, before );
   EXPECT_EQ( binding->task(), now );
   EXPECT_EQ( consumer->pushes, 1 );
   before->scheduleTask();
   loop.runUntilIdle();
   EXPECT_EQ( consumer->pushes, 1 ); // The old one is not listened to any more.
   now->scheduleTask();
   loop.runUntilIdle();
   EXPECT_EQ( consumer->pushes, 2 );
}

TEST_F( BacklogTaskTest, ANewTaskMayTakeItsPropertiesFromTheOldOne ) {
   const Lumo::Ptr< Oru::TaskScheduler > scheduler = loop.scheduler();
   binding->taskIs( binding->task()->taskScheduler(), 3, "other" );
   EXPECT_EQ( binding->task()->taskScheduler(), scheduler );
   binding->taskIs( Lumo::makeNode< Oru::TaskScheduler >(), 3, binding->task()->taskName() );
   EXPECT_EQ( binding->task()->taskName(), "other" );
}

TEST_F( BacklogTaskTest, RemovingTheTaskReturnsItAndChangesThenAskForNothing ) {
   const Lumo::Ptr< Oru::Task > before = binding->task();
   EXPECT_EQ( binding->taskDel(), before );
   EXPECT_EQ( binding->taskDel(), nullptr );
   loop.runUntilIdle();
   watch();
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 0U );
}

TEST_F( BacklogTaskTest, WithNotificationsOffNeitherChangesNorRunsAreHeard ) {
   loop.runUntilIdle();
   watch();
   binding->hasNotificationActiveIs( false );
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 0U );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   binding->hasNotificationActiveIs( true );
   binding->hasNotificationActiveIs( true );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogTaskTest, WhileItIsBeingTornDownNeitherChangesNorRunsAreHeard ) {
   loop.runUntilIdle();
   watch();
   binding->nodeFlagSet( Lumo::Node::Flag::zombie, true );
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 0U );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   binding->nodeFlagSet( Lumo::Node::Flag::zombie, false );
   binding->task()->scheduleTask();
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 1 ) );
}

TEST_F( BacklogTaskTest, ItListensToTheBacklogFromItsConstructionOn ) {
   binding = nullptr;
   const auto bare = Lumo::makeNode< PbrCountersBacklogTask >( "bare", backlog );
   EXPECT_EQ( loop.pending(), 1U );
   loop.runUntilIdle();
   file( { 1 } );
   EXPECT_EQ( loop.pending(), 1U );
}

TEST_F( BacklogTaskTest, BothFactoriesMakeOneThatListensAndRuns ) {
   binding = nullptr;
   watch();
   for ( const auto factory : { &pbrCountersBacklogTaskFactory, &PbrCountersBacklogTaskIs } ) {
      consumer->items.clear();
      const auto made = factory( "made", backlog );
      EXPECT_TRUE( made->hasNotificationActive() );
      EXPECT_TRUE( made->initialized() );
      EXPECT_EQ( made->references(), 1U );
      EXPECT_EQ( made->task()->taskName(), "made" );
      file( { 1 } );
      loop.runUntilIdle();
      EXPECT_THAT( consumer->items, SizeIs( 1 ) );
   }
}

TEST_F( BacklogTaskTest, ItNamesItsAttributesInOrder ) {
   EXPECT_EQ( binding->typeData().typeName, "VeloSdkRpc::PbrCountersBacklogTask" );
   EXPECT_THAT( binding->typeData().attributeNames,
                ElementsAre( "task", "pbrCountersBacklogPtr", "initialized" ) );
}

TEST_F( BacklogTaskTest, DroppedFromInsideItsOwnRunItBreaksNothing ) {
   loop.endlessSlices();
   watch();
   file( { 1, 2 } );
   consumer->beforeItem = [this]( const auto &, auto ) {
      binding = nullptr;
      backlog = nullptr;
   };
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, SizeIs( 2 ) );
}

TEST_F( BacklogTaskTest, SlicesFollowOneAnotherUntilAllIsDelivered ) {
   loop.yieldsAfter( 2 );
   loop.runUntilIdle();
   watch();
   for ( std::uint64_t key = 1; key <= 10; ++key ) { file( { key } ); }
   EXPECT_EQ( loop.runUntilIdle(), 4U );
   EXPECT_THAT( consumer->items, SizeIs( 10 ) );
   EXPECT_EQ( consumer->pushes, 4 );
}

} // namespace
} // namespace VeloSdkRpc::test
