#pragma once

#include <cstddef>
#include <cstdint>

#include "Lumo/Link.h"
#include "Lumo/Node.h"
#include "Lumo/Publisher.h"
#include "Lumo/String.h"
#include "Oru/TaskScheduler.h"

namespace Oru {

/// The lower the number, the more urgent: 0 runs before 3.
using TaskPriority = std::uint8_t;

/// A cooperative task: work in slices. A run is told to the task's subscribers, normally the one
/// object that owns it:
///
///    task->publisher()->subscriberAdd( slot );
///    task->scheduleTask();
///    ...
///    on kRun:  while ( more work ) {
///                 do one item;
///                 if ( task->taskShouldYield() ) { task->scheduleTask(); break; }
///              }
///
/// Owner      whoever has its work; a task that waits to be run is not kept alive by that
/// Thread     event loop only (checked in debug builds)
/// Re-entry   anything may happen during a run; a task dropped in its own run dies after it
class VELO_PLATFORM_EXPORT Task : public Lumo::Node, private Lumo::Link {
 public:
   /// What a run is told as: a change of this attribute, without key or value.
   static constexpr short kRun = 1;

   /// `scheduler` may be null: such a task cannot be scheduled and is never told to yield.
   Task( const Lumo::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
         const Lumo::String & name );
   ~Task() override;

   Lumo::Publisher * publisher() const override { return &publisher_; }

   /// Asks for a run. Nothing if it waits for one already; while it runs, asks for another, behind
   /// its peers. Fatal without a scheduler.
   void scheduleTask();

   /// Whether this is the task that runs now.
   bool taskCurrentlyRunning() const { return scheduler_ && scheduler_->running_ == this; }

   /// Whether the slice is used up and the caller must return to let others run. To be asked after
   /// every item; costs a few instructions. Whichever task is asked, the verdict is that of the
   /// slice in progress, and within a run it never turns from true to false.
   bool taskShouldYield() {
      if ( !scheduler_ || scheduler_->askGoesOn() ) { return false; }
      ++yieldsTold_;
      return true;
   }

   /// Accounts for `items` of work done.
   void taskWorkCountInc( std::size_t items ) { workCount_ += items; }

   /// Tells how many items of work are left. Outside of runs it also ends the slice.
   void taskWorkPendingIs( std::size_t items );

   /// A task that waits moves behind its new peers.
   void taskPriorityIs( TaskPriority priority );

   TaskPriority taskPriority() const { return priority_; }
   const Lumo::String & taskName() const { return name_; }
   const Lumo::Ptr< TaskScheduler > & taskScheduler() const { return scheduler_; }

   /// What this task has done so far; for people who look.
   std::uint64_t taskWorkCount() const { return workCount_; }
   std::size_t taskWorkPending() const { return workPending_; }
   std::uint64_t taskRuns() const { return runs_; }
   std::uint64_t taskYieldsTold() const { return yieldsTold_; }
   /// Those of its runs that exceeded their slice by more than is tolerated.
   std::uint64_t taskOverstays() const { return overstays_; }

 protected:
   /// One run. A subclass with work of its own does it here instead of telling subscribers.
   virtual void taskRun();

 private:
   friend class TaskScheduler;

   /// Its place among all tasks of the scheduler.
   struct Place final : Lumo::Link {
      explicit Place( const Task & of ) : task( of ) {}
      const Task & task;
   };

   const Lumo::Ptr< TaskScheduler > scheduler_;
   Place place_{ *this };
   const Lumo::String name_;
   TaskPriority priority_;
   mutable Lumo::Publisher publisher_;
   std::uint64_t workCount_ = 0;
   std::size_t workPending_ = 0;
   std::uint64_t runs_ = 0;
   std::uint64_t yieldsTold_ = 0;
   std::uint64_t overstays_ = 0;
};

} // namespace Oru
