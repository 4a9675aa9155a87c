#include "Oru/TaskScheduler.h"

#include <algorithm>
#include <utility>

#include "Lumo/Assert.h"
#include "Lumo/Thread.h"
#include "Oru/Task.h"

namespace Oru {
namespace {

std::unique_ptr< SlicePolicy > defaultPolicy() {
   if ( TaskScheduler::grantsNoSlices() ) { return std::make_unique< AlwaysYield >(); }
   return std::make_unique< TimeSlice >( std::chrono::milliseconds( 1 ) );
}

Lumo::Ptr< TaskScheduler > & processWideScheduler() {
   static Lumo::Ptr< TaskScheduler > scheduler;
   return scheduler;
}

} // namespace

/// One run in progress. Keeps the task and the scheduler alive until it is over.
class TaskScheduler::Run {
 public:
   Run( TaskScheduler & scheduler, Task & task ) : scheduler_( &scheduler ), task_( &task ) {
      scheduler.running_ = &task;
      scheduler.sliceBegins();
   }
   ~Run() {
      TaskSchedulerStatistics & seen = scheduler_->statistics_;
      const auto overstay = scheduler_->policy_->overstay();
      ++seen.runs;
      if ( overstay.count() > 0 ) {
         ++seen.overstays;
         ++task_->overstays_;
      }
      seen.longestOverstay = std::max( seen.longestOverstay, overstay );
      scheduler_->running_ = nullptr;
      scheduler_->sliceEnds();
   }

 private:
   Lumo::Ptr< TaskScheduler > scheduler_;
   Lumo::Ptr< Task > task_; // the first to go: its end may be the end of the scheduler
};

bool TaskScheduler::grantsNoSlices() {
#if defined( ORU_ALWAYS_YIELD ) && ORU_ALWAYS_YIELD
   return true;
#else
   return false;
#endif
}

TaskScheduler::TaskScheduler() : policy_( defaultPolicy() ) {}

TaskScheduler::~TaskScheduler() = default;

bool TaskScheduler::runOne() {
   Lumo::Impl::checkEventLoopThread();
   LUMO_ASSERT( !running_ && "one task at a time: a run must not run another task" );
   if ( pending_ == 0 ) { return false; }
   auto & task = static_cast< Task & >( *queue_.next() );
   waitingDel( task );
   const Run run( *this, task );
   ++task.runs_;
   task.taskRun();
   return true;
}

std::size_t TaskScheduler::runUntilIdle( std::size_t atMost ) {
   const Lumo::Ptr< TaskScheduler > self( this ); // a run may drop the last other reference
   std::size_t runs = 0;
   while ( runs < atMost && runOne() ) { ++runs; }
   return runs;
}

void TaskScheduler::wakeUpIs( std::function< void() > wakeUp ) {
   wakeUp_ = std::move( wakeUp );
   if ( wakeUp_ && pending_ != 0 ) { wakeUp_(); }
}

void TaskScheduler::slicePolicyIs( std::unique_ptr< SlicePolicy > policy ) {
   LUMO_ASSERT( policy );
   policy_ = std::move( policy );
   sliceEnds();
   if ( running_ ) { sliceBegins(); }
}

std::vector< Lumo::Ptr< const Task > > TaskScheduler::tasks() const {
   std::vector< Lumo::Ptr< const Task > > all;
   for ( const Lumo::Link * at = tasks_.next(); at != &tasks_; at = at->next() ) {
      all.emplace_back( &static_cast< const Task::Place * >( at )->task );
   }
   return all;
}

void TaskScheduler::waitingIs( Task & task ) {
   file( task );
   if ( ++pending_ == 1 && wakeUp_ ) { wakeUp_(); }
}

void TaskScheduler::waitingDel( Task & task ) {
   static_cast< Lumo::Link & >( task ).unlink();
   --pending_;
}

void TaskScheduler::priorityChanged( Task & task ) {
   static_cast< Lumo::Link & >( task ).unlink();
   file( task );
}

/// The queue is kept in running order. Filing a task walks past those that go before it, which are
/// few: a process has a handful of tasks, and long work is one task with many items.
void TaskScheduler::file( Task & task ) {
   Lumo::Link * at = queue_.next();
   while ( at != &queue_ && static_cast< Task * >( at )->priority_ <= task.priority_ ) {
      at = at->next();
   }
   static_cast< Lumo::Link & >( task ).linkBefore( *at );
}

bool TaskScheduler::consultPolicy() {
   if ( slice_ == Slice::usedUp ) { return false; }
   if ( slice_ == Slice::none ) { sliceBegins(); }
   const std::uint32_t granted = policy_->consult();
   if ( granted != 0 ) {
      asksGranted_ = granted - 1;
      return true;
   }
   // A run's slice stays used up until the run is over. Outside of runs the asker returns to the
   // event loop now, and whoever asks next has a slice of its own.
   slice_ = running_ ? Slice::usedUp : Slice::none;
   return false;
}

void TaskScheduler::workReported() {
   if ( !running_ ) { sliceEnds(); }
}

void TaskScheduler::sliceBegins() {
   asksGranted_ = 0;
   slice_ = Slice::inProgress;
   policy_->sliceBegins();
}

void TaskScheduler::sliceEnds() {
   asksGranted_ = 0;
   slice_ = Slice::none;
}

Lumo::Ptr< TaskScheduler > TaskSchedulerRoot::findOrCreateScheduler() {
   Lumo::Impl::checkEventLoopThread();
   Lumo::Ptr< TaskScheduler > & scheduler = processWideScheduler();
   if ( !scheduler ) { scheduler = Lumo::makeNode< TaskScheduler >(); }
   return scheduler;
}

void TaskSchedulerRoot::schedulerIs( const Lumo::Ptr< TaskScheduler > & scheduler ) {
   Lumo::Impl::checkEventLoopThread();
   processWideScheduler() = scheduler;
}

} // namespace Oru
