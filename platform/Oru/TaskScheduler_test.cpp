#include "Oru/SchedulerFixture.h"

#include <deque>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Oru {
namespace {

using testing::ElementsAre;

using OrderOfRuns = SchedulerFixture;
using Dropping = SchedulerFixture;
using Throwing = SchedulerFixture;
using WakeUp = SchedulerFixture;
using Telling = SchedulerFixture;
using SchedulerDeathTest = SchedulerFixture;

TEST_F( OrderOfRuns, TheMoreUrgentRunFirstAndPeersInTheOrderInWhichTheyAsked ) {
   const auto a3 = worker( "a3", 3 ), b0 = worker( "b0", 0 ), c3 = worker( "c3", 3 ),
              d255 = worker( "d255", 255 ), e0 = worker( "e0", 0 );
   schedule( d255, a3, b0, c3, e0 );
   EXPECT_EQ( scheduler->pending(), 5u );
   EXPECT_EQ( scheduler->runUntilIdle(), 5u );
   EXPECT_THAT( log, ElementsAre( "b0", "e0", "a3", "c3", "d255" ) );
   EXPECT_EQ( scheduler->pending(), 0u );
   EXPECT_FALSE( scheduler->runOne() );
}

TEST_F( OrderOfRuns, ATaskThatAsksTwiceRunsOnceInItsFirstPlace ) {
   const auto a = worker( "a" ), b = worker( "b" );
   schedule( a, b, a );
   EXPECT_EQ( scheduler->pending(), 2u );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "a", "b" ) );
}

TEST_F( OrderOfRuns, ATaskThatAsksInItsRunRunsAgainBehindItsPeersAndBeforeTheLessUrgent ) {
   int rounds = 3;
   const auto again = worker( "again", 1, [&]( Worker & self ) {
      if ( --rounds > 0 ) {
         self.task->scheduleTask();
         self.task->scheduleTask();
      }
   } );
   const auto peer = worker( "peer", 1 ), later = worker( "later", 2 );
   schedule( later, again, peer );
   EXPECT_EQ( scheduler->runUntilIdle(), 5u );
   EXPECT_THAT( log, ElementsAre( "again", "peer", "again", "again", "later" ) );
}

TEST_F( OrderOfRuns, AMoreUrgentTaskScheduledInARunIsTheNextToRun ) {
   const auto urgent = worker( "urgent", 0 );
   const auto first = worker( "first", 1, [&]( Worker & ) { schedule( urgent ); } );
   const auto second = worker( "second", 1 );
   schedule( first, second );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "first", "urgent", "second" ) );
}

TEST_F( OrderOfRuns, ATaskThatWaitsMovesBehindItsNewPeersWhenItsPriorityChanges ) {
   const auto a = worker( "a", 1 ), b = worker( "b", 1 ), c = worker( "c", 2 );
   schedule( a, b, c );
   a->task->taskPriorityIs( 2 );
   b->task->taskPriorityIs( 1 );
   EXPECT_EQ( scheduler->pending(), 3u );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "b", "c", "a" ) );
}

TEST_F( OrderOfRuns, APriorityChangedInARunHoldsForTheNextOne ) {
   const auto changes = worker( "changes", 1, []( Worker & self ) {
      if ( self.task->taskRuns() > 1 ) { return; }
      self.task->taskPriorityIs( 3 );
      self.task->scheduleTask();
   } );
   const auto other = worker( "other", 2 );
   schedule( changes, other );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "changes", "other", "changes" ) );
   EXPECT_EQ( changes->task->taskPriority(), 3 );
}

TEST_F( OrderOfRuns, RunUntilIdleStopsAfterSoManyRuns ) {
   const auto restless =
      worker( "restless", 0, []( Worker & self ) { self.task->scheduleTask(); } );
   schedule( restless );
   EXPECT_EQ( scheduler->runUntilIdle( 3 ), 3u );
   EXPECT_THAT( log, ElementsAre( "restless", "restless", "restless" ) );
   EXPECT_EQ( scheduler->pending(), 1u );
}

TEST_F( Telling, ATaskIsTheOneRunningOnlyInItsOwnRun ) {
   const auto other = worker( "other" );
   const auto self = worker( "self", 0, [&]( Worker & me ) {
      EXPECT_TRUE( me.task->taskCurrentlyRunning() );
      EXPECT_FALSE( other->task->taskCurrentlyRunning() );
   } );
   schedule( self );
   EXPECT_FALSE( self->task->taskCurrentlyRunning() );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "self" ) );
   EXPECT_FALSE( self->task->taskCurrentlyRunning() );
}

TEST_F( Telling, ATaskKnowsWhatItWasMadeWithAndWhatItWasTold ) {
   const auto w = worker( "w", 7, []( Worker & self ) {
      EXPECT_TRUE( self.task->taskShouldYield() );
      self.task->taskWorkCountInc( 2 );
      self.task->taskWorkCountInc( 3 );
      self.task->taskWorkPendingIs( 40 );
   } );
   EXPECT_EQ( w->task->taskName(), "w" );
   EXPECT_EQ( w->task->taskPriority(), 7 );
   EXPECT_EQ( w->task->taskScheduler(), scheduler );
   schedule( w );
   scheduler->runUntilIdle();
   EXPECT_EQ( w->task->taskWorkCount(), 5u );
   EXPECT_EQ( w->task->taskWorkPending(), 40u );
   EXPECT_EQ( w->task->taskRuns(), 1u );
   EXPECT_EQ( w->task->taskYieldsTold(), 1u );
   EXPECT_EQ( scheduler->statistics().runs, 1u );
}

TEST_F( Telling, ASubclassMayDoTheWorkItself ) {
   class Counts final : public Task {
    public:
      using Task::Task;
      int runs = 0;

    private:
      void taskRun() override { ++runs; }
   };
   const auto counts = Lumo::makeNode< Counts >( scheduler, TaskPriority{ 0 }, "counts" );
   counts->scheduleTask();
   scheduler->runUntilIdle();
   EXPECT_EQ( counts->runs, 1 );
}

TEST_F( Telling, ATaskWithoutASchedulerIsNeverToldToYield ) {
   const auto task = Lumo::makeNode< Task >( nullptr, TaskPriority{ 0 }, "alone" );
   EXPECT_FALSE( task->taskShouldYield() );
   EXPECT_FALSE( task->taskCurrentlyRunning() );
   EXPECT_EQ( task->taskScheduler(), nullptr );
   task->taskPriorityIs( 5 );
   task->taskWorkPendingIs( 9 );
   EXPECT_EQ( task->taskWorkPending(), 9u );
}

TEST_F( Dropping, WaitingKeepsNoTaskAlive ) {
   auto gone = worker( "gone" );
   const auto stays = worker( "stays" );
   schedule( gone, stays );
   EXPECT_EQ( gone->task->references(), 1u );
   gone = nullptr;
   EXPECT_EQ( scheduler->pending(), 1u );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "stays" ) );
}

TEST_F( Dropping, ATaskDroppedInItsOwnRunLivesUntilTheRunIsOver ) {
   const auto other = worker( "other" );
   const auto dropsItself = worker( "dropsItself", 0, []( Worker & self ) {
      Task * const task = self.task.get();
      task->scheduleTask();
      self.task = nullptr;
      EXPECT_TRUE( task->taskCurrentlyRunning() );
      EXPECT_TRUE( task->taskShouldYield() );
      task->taskWorkPendingIs( 1 );
   } );
   schedule( dropsItself, other );
   scheduler->runUntilIdle();
   EXPECT_THAT( log, ElementsAre( "dropsItself", "other" ) );
   EXPECT_EQ( scheduler->pending(), 0u );
}

TEST_F( Dropping, ATaskMayDropTheNextOne ) {
   auto next = worker( "next" );
   const auto drops = worker( "drops", 0, [&]( Worker & ) { next = nullptr; } );
   const auto last = worker( "last" );
   schedule( drops, next, last );
   EXPECT_EQ( scheduler->runUntilIdle(), 2u );
   EXPECT_THAT( log, ElementsAre( "drops", "last" ) );
}

TEST_F( Dropping, ARunMayDropAllThatHoldsTheScheduler ) {
   auto drops = worker( "drops", 0, [this]( Worker & self ) {
      self.task = nullptr;
      scheduler = nullptr;
   } );
   schedule( drops );
   EXPECT_EQ( scheduler->runUntilIdle(), 1u );
   EXPECT_THAT( log, ElementsAre( "drops" ) );
}

TEST_F( Throwing, WhatARunThrowsPassesThroughAndTheOthersStillRun ) {
   const auto throws =
      worker( "throws", 0, []( Worker & ) { throw std::runtime_error( "no luck" ); } );
   const auto other = worker( "other" );
   schedule( throws, other );
   EXPECT_THROW( scheduler->runOne(), std::runtime_error );
   EXPECT_FALSE( throws->task->taskCurrentlyRunning() );
   EXPECT_EQ( scheduler->pending(), 1u );
   schedule( throws );
   EXPECT_TRUE( scheduler->runOne() );
   EXPECT_THROW( scheduler->runUntilIdle(), std::runtime_error );
   EXPECT_THAT( log, ElementsAre( "throws", "other", "throws" ) );
   EXPECT_EQ( scheduler->statistics().runs, 3u );
}

TEST_F( Throwing, ATaskThatAskedForAnotherRunBeforeItThrewGetsIt ) {
   const auto throwsOnce = worker( "throwsOnce", 0, []( Worker & self ) {
      if ( self.task->taskRuns() > 1 ) { return; }
      self.task->scheduleTask();
      throw std::runtime_error( "once" );
   } );
   schedule( throwsOnce );
   EXPECT_THROW( scheduler->runOne(), std::runtime_error );
   EXPECT_EQ( scheduler->runUntilIdle(), 1u );
}

TEST_F( WakeUp, TheHookIsCalledWhenTheFirstTaskBeginsToWait ) {
   int calls = 0;
   scheduler->wakeUpIs( [&] { ++calls; } );
   EXPECT_EQ( calls, 0 );
   const auto a = worker( "a" ), b = worker( "b" );
   schedule( a, a, b );
   EXPECT_EQ( calls, 1 );
   scheduler->runUntilIdle();
   EXPECT_EQ( calls, 1 );
   schedule( b );
   EXPECT_EQ( calls, 2 );
   b->task->taskPriorityIs( 9 );
   EXPECT_EQ( calls, 2 );
}

TEST_F( WakeUp, TheHookIsCalledInARunThatLeavesTheFirstTaskWaiting ) {
   const auto again = worker( "again", 0, []( Worker & self ) {
      if ( self.task->taskRuns() == 1 ) { self.task->scheduleTask(); }
   } );
   int calls = 0;
   scheduler->wakeUpIs( [&] { ++calls; } );
   schedule( again );
   EXPECT_TRUE( scheduler->runOne() );
   EXPECT_EQ( calls, 2 );
}

TEST_F( WakeUp, AHookThatComesLateIsCalledAtOnce ) {
   const auto a = worker( "a" );
   schedule( a );
   int calls = 0;
   scheduler->wakeUpIs( [&] { ++calls; } );
   EXPECT_EQ( calls, 1 );
}

TEST_F( WakeUp, ALoopThatPostsOneStepPerWakeUpRunsEverything ) {
   std::deque< std::function< void() > > loop; // growing leaves the running step in place
   bool posted = false;
   std::function< void() > step;
   const auto post = [&] {
      if ( !posted ) {
         posted = true;
         loop.push_back( step );
      }
   };
   step = [&] {
      posted = false;
      scheduler->runOne();
      if ( scheduler->pending() ) { post(); }
   };
   scheduler->wakeUpIs( post );

   const auto thrice = worker( "thrice", 0, []( Worker & self ) {
      if ( self.task->taskRuns() < 3 ) { self.task->scheduleTask(); }
   } );
   const auto once = worker( "once" );
   schedule( thrice, once );
   std::size_t steps = 0;
   for ( ; steps < loop.size(); ++steps ) { loop[steps](); }
   EXPECT_THAT( log, ElementsAre( "thrice", "once", "thrice", "thrice" ) );
   EXPECT_EQ( steps, 4u );
}

TEST_F( OrderOfRuns, EveryTaskThatIsThereIsListedWhetherItWaitsOrNot ) {
   const auto first = worker( "first" );
   auto second = worker( "second" );
   const auto third = worker( "third" );
   schedule( third );
   EXPECT_THAT( scheduler->tasks(), ElementsAre( first->task, second->task, third->task ) );
   second = nullptr;
   EXPECT_THAT( scheduler->tasks(), ElementsAre( first->task, third->task ) );
}

TEST_F( SchedulerDeathTest, ARunMustNotRunAnotherTask ) {
   const auto nests = worker( "nests", 0, [this]( Worker & ) { scheduler->runOne(); } );
   schedule( nests );
   EXPECT_DEATH( scheduler->runOne(), "one task at a time: a run must not run another task" );
}

TEST_F( SchedulerDeathTest, ATaskWithoutASchedulerCannotBeScheduled ) {
   const auto task = Lumo::makeNode< Task >( nullptr, TaskPriority{ 0 }, "alone" );
   EXPECT_DEATH( task->scheduleTask(), "a task without a scheduler is run by its owner" );
}

TEST( ProcessWideScheduler, IsMadeOnFirstUseAndCanBeReplaced ) {
   TaskSchedulerRoot::schedulerIs( nullptr );
   const auto made = TaskSchedulerRoot::findOrCreateScheduler();
   ASSERT_TRUE( made );
   EXPECT_EQ( TaskSchedulerRoot::findOrCreateScheduler(), made );

   const auto mine = Lumo::makeNode< TaskScheduler >();
   TaskSchedulerRoot::schedulerIs( mine );
   EXPECT_EQ( TaskSchedulerRoot::findOrCreateScheduler(), mine );
   TaskSchedulerRoot::schedulerIs( nullptr );
   EXPECT_EQ( mine->references(), 1u );
}

} // namespace
} // namespace Oru
