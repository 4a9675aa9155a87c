#include "Oru/SchedulerFixture.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Oru {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::AllOf;
using testing::Ge;
using testing::Le;

/// Slices by counting: which asks share one.
class Slices : public SchedulerFixture {
 protected:
   /// Runs `work` as one run of a task.
   void run( Worker::Work work ) {
      const auto w = worker( "w", 0, std::move( work ) );
      schedule( w );
      ASSERT_TRUE( scheduler->runOne() );
   }

   Lumo::Ptr< Worker > asker = worker( "asker" );
};

TEST_F( Slices, YieldsAfterGrantsSoManyAsksAndNoMoreUntilTheSliceEnds ) {
   slices< YieldsAfter >( 3u );
   run( []( Worker & self ) {
      EXPECT_EQ( asksThatGoOn( self ), 3 );
      EXPECT_EQ( asksThatGoOn( self ), 0 );
   } );
}

TEST_F( Slices, AlwaysYieldGrantsNothing ) {
   slices< AlwaysYield >();
   run( []( Worker & self ) { EXPECT_EQ( asksThatGoOn( self ), 0 ); } );
   EXPECT_EQ( asksThatGoOn( *asker ), 0 );
   EXPECT_EQ( asksThatGoOn( *asker ), 0 );
}

TEST_F( Slices, EveryRunHasASliceOfItsOwn ) {
   slices< YieldsAfter >( 3u );
   run( []( Worker & self ) { EXPECT_EQ( asksThatGoOn( self, 2 ), 2 ); } );
   run( []( Worker & self ) { EXPECT_EQ( asksThatGoOn( self ), 3 ); } );
   run( []( Worker & self ) { EXPECT_EQ( asksThatGoOn( self ), 3 ); } );
}

TEST_F( Slices, AnAskOfATaskThatIsNotRunningGetsTheRunningSlicesVerdict ) {
   slices< YieldsAfter >( 3u );
   run( [&]( Worker & self ) {
      EXPECT_EQ( asksThatGoOn( *asker, 2 ), 2 );
      EXPECT_EQ( asksThatGoOn( self ), 1 );
      EXPECT_EQ( asksThatGoOn( *asker ), 0 );
      EXPECT_EQ( asksThatGoOn( *asker ), 0 );
   } );
}

TEST_F( Slices, ReportingWorkInARunDoesNotEndItsSlice ) {
   slices< YieldsAfter >( 3u );
   run( [&]( Worker & self ) {
      EXPECT_EQ( asksThatGoOn( self ), 3 );
      self.task->taskWorkPendingIs( 1 );
      asker->task->taskWorkPendingIs( 1 );
      EXPECT_EQ( asksThatGoOn( self ), 0 );
   } );
}

TEST_F( Slices, OutsideOfRunsAVerdictToYieldEndsTheSlice ) {
   slices< YieldsAfter >( 3u );
   const auto other = worker( "other" );
   EXPECT_EQ( asksThatGoOn( *asker, 2 ), 2 );
   EXPECT_EQ( asksThatGoOn( *other ), 1 );
   EXPECT_EQ( asksThatGoOn( *asker ), 3 );
}

TEST_F( Slices, OutsideOfRunsReportingWorkEndsTheSlice ) {
   slices< YieldsAfter >( 3u );
   EXPECT_EQ( asksThatGoOn( *asker, 2 ), 2 );
   asker->task->taskWorkPendingIs( 0 );
   EXPECT_EQ( asksThatGoOn( *asker ), 3 );
}

TEST_F( Slices, ARunEndsTheSliceThatWasBegunOutside ) {
   slices< YieldsAfter >( 3u );
   EXPECT_EQ( asksThatGoOn( *asker, 2 ), 2 );
   run( []( Worker & self ) { EXPECT_EQ( asksThatGoOn( self, 1 ), 1 ); } );
   EXPECT_EQ( asksThatGoOn( *asker ), 3 );
}

TEST_F( Slices, OutsideOfRunsTheSliceBeginsWithTheFirstAsk ) {
   slices< TimeSlice >( 1ms, clock );
   EXPECT_FALSE( asker->task->taskShouldYield() );
   asker->task->taskWorkPendingIs( 0 );
   clock.advance( 1h );
   EXPECT_FALSE( asker->task->taskShouldYield() );
   clock.advance( 1ms );
   EXPECT_TRUE( asker->task->taskShouldYield() );
}

TEST_F( Slices, ANewPolicyBeginsTheSliceAnew ) {
   slices< YieldsAfter >( 1u );
   run( [this]( Worker & self ) {
      EXPECT_EQ( asksThatGoOn( self ), 1 );
      slices< YieldsAfter >( 2u );
      EXPECT_EQ( asksThatGoOn( self ), 2 );
   } );
   EXPECT_EQ( asksThatGoOn( *asker, 1 ), 1 );
   slices< YieldsAfter >( 4u );
   EXPECT_EQ( asksThatGoOn( *asker ), 4 );
}

TEST_F( Slices, ANewSchedulerEndsItsSlicesWithoutBeingTold ) {
   scheduler = Lumo::makeNode< TaskScheduler >();
   run( []( Worker & self ) {
      int wentOn = 0;
      while ( !self.task->taskShouldYield() ) { ++wentOn; }
      EXPECT_EQ( self.task->taskYieldsTold(), 1u );
      if ( TaskScheduler::grantsNoSlices() ) { EXPECT_EQ( wentOn, 0 ); }
   } );
}

/// Slices of one millisecond of fake time.
class SlicesOfTime : public Slices {
 protected:
   SlicesOfTime() { slices< TimeSlice >( 1ms, clock ); }

   /// Works on items that take `each`, until told to yield or `limit` are done.
   int items( Worker & self, nanoseconds each, int limit = 1'000'000 ) {
      for ( int done = 1; done <= limit; ++done ) {
         clock.advance( each );
         if ( self.task->taskShouldYield() ) { return done; }
      }
      return limit;
   }

   int itemsInOneRun( nanoseconds each ) {
      int done = 0;
      run( [&]( Worker & self ) { done = items( self, each ); } );
      return done;
   }
};

TEST_F( SlicesOfTime, SlowItemsAreEachMeasured ) {
   EXPECT_EQ( itemsInOneRun( 300us ), 4 );
   EXPECT_EQ( itemsInOneRun( 2ms ), 1 );
}

TEST_F( SlicesOfTime, FastItemsUseTheSliceUpToASixteenthMoreAndRarelyReadTheClock ) {
   for ( const nanoseconds each : { nanoseconds( 10us ), nanoseconds( 1us ), 100ns } ) {
      const auto before = clock.readings();
      const auto ideal = 1ms / each;
      EXPECT_THAT( itemsInOneRun( each ), AllOf( Ge( ideal ), Le( ideal + ideal / 16 + 1 ) ) );
      EXPECT_THAT( clock.readings() - before, Le( 32u ) ) << each.count() << " ns per item";
   }
}

TEST_F( SlicesOfTime, ItemsThatSuddenlyBecomeSlowAreNoticedWithinOneStride ) {
   run( [this]( Worker & self ) {
      items( self, 1us, 500 );
      EXPECT_THAT( items( self, 100us ), Le( 1000 / 16 + 1 ) );
   } );
}

TEST_F( SlicesOfTime, AFewFastItemsDoNotYetEarnALongStride ) {
   run( [this]( Worker & self ) {
      items( self, 0ns, 3 );
      EXPECT_EQ( items( self, 1ms ), 1 );
   } );
}

TEST_F( SlicesOfTime, ThePaceOfOneRunIsNotCarriedToTheNext ) {
   itemsInOneRun( 100ns );
   EXPECT_EQ( itemsInOneRun( 300us ), 4 );
}

TEST_F( SlicesOfTime, AClockThatStoodStillIsStillReadEveryThousandAsksOrSo ) {
   run( [this]( Worker & self ) {
      EXPECT_EQ( items( self, 0ns, 100'000 ), 100'000 );
      clock.advance( 1ms );
      EXPECT_THAT( items( self, 0ns ), Le( 1024 ) );
   } );
}

TEST_F( SlicesOfTime, ARunFarBeyondItsSliceIsCountedAsAnOverstay ) {
   slices< TimeSlice >( 1ms, clock, 500us );
   const auto lasting = [this]( nanoseconds time ) {
      run( [&]( Worker & ) { clock.advance( time ); } );
   };
   lasting( 1ms );
   lasting( 1500us );
   EXPECT_EQ( scheduler->statistics().overstays, 0u );
   EXPECT_EQ( scheduler->statistics().longestOverstay, 0ns );
   lasting( 4ms );
   lasting( 2ms );
   EXPECT_EQ( scheduler->statistics().overstays, 2u );
   EXPECT_EQ( scheduler->statistics().longestOverstay, 3ms );
   EXPECT_EQ( scheduler->statistics().runs, 4u );
}

TEST_F( SlicesOfTime, AnOverstayIsChargedToTheTaskThatStayed ) {
   slices< TimeSlice >( 1ms, clock, 500us );
   const auto slow = worker( "slow", 0, [this]( Worker & ) { clock.advance( 4ms ); } );
   const auto quick = worker( "quick" );
   for ( int n = 0; n < 3; ++n ) {
      schedule( slow, quick );
      scheduler->runUntilIdle();
   }
   EXPECT_EQ( slow->task->taskOverstays(), 3u );
   EXPECT_EQ( quick->task->taskOverstays(), 0u );
}

TEST_F( SlicesOfTime, ARunThatThrowsCanOverstayToo ) {
   const auto throws = worker( "throws", 0, [this]( Worker & ) {
      clock.advance( 1s );
      throw std::runtime_error( "late" );
   } );
   schedule( throws );
   EXPECT_THROW( scheduler->runOne(), std::runtime_error );
   EXPECT_EQ( scheduler->statistics().overstays, 1u );
   EXPECT_EQ( throws->task->taskOverstays(), 1u );
}

} // namespace
} // namespace Oru
