#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "Lumo/Link.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Oru/SlicePolicy.h"

namespace Oru {

class Task;

/// What a scheduler has seen so far; for people who look.
struct TaskSchedulerStatistics {
   std::uint64_t runs = 0;
   std::uint64_t overstays = 0; ///< Runs that exceeded their slice by more than is tolerated.
   std::chrono::nanoseconds longestOverstay{ 0 };
};

/// Runs tasks, one at a time: the most urgent priority first, within a priority in the order in
/// which they asked. It knows no operating system; an event loop drives it:
///
///    scheduler->wakeUpIs( [ & ] { if ( !posted ) { posted = true; loop.post( step ); } } );
///    step:  posted = false;
///           scheduler->runOne();
///           if ( scheduler->pending() && !posted ) { posted = true; loop.post( step ); }
///
/// Everything in `step` is done under the SDK lock, and its last line also when `runOne` throws.
///
/// A run has one slice, whose length is the slice policy's affair. Asks made while no task runs
/// (work that was started inside an event handler) share a slice too: it begins with the first such
/// ask and ends when an ask was told to yield, when work is reported with `taskWorkPendingIs`, or
/// when a run begins.
///
/// Owner      whoever drives it, and every task on it
/// Thread     event loop only (checked in debug builds)
/// Re-entry   a run may do anything to any task: schedule, change priority, drop it; also drop
///            itself or this scheduler. It must not call `runOne` again (fatal).
/// Invariant  a task waits here at most once; waiting keeps no task alive
class VELO_PLATFORM_EXPORT TaskScheduler final : public Lumo::Node {
 public:
   static constexpr std::size_t kUnlimited = std::numeric_limits< std::size_t >::max();

   /// Whether new schedulers end every slice at once: so they do in builds with VELO_ALWAYS_YIELD.
   static bool grantsNoSlices();

   /// With slices of one millisecond of real time, or none where `grantsNoSlices`.
   TaskScheduler();
   ~TaskScheduler() override;

   /// Runs the most urgent waiting task; false if none waits. What the run throws passes through,
   /// with everything here as after any other run.
   bool runOne();

   /// Runs tasks until none waits or `atMost` have run; returns how many have.
   std::size_t runUntilIdle( std::size_t atMost = kUnlimited );

   /// How many tasks wait to be run; the one running now is not among them.
   std::size_t pending() const { return pending_; }

   /// `wakeUp` is called whenever the first task begins to wait: inside a run, outside of one, by
   /// any thread that holds the SDK lock, and at once if tasks are waiting already. It must only
   /// see to it that `runOne` will be called. Empty: nobody is told.
   void wakeUpIs( std::function< void() > wakeUp );

   /// Replaces the policy, which must not be null. A slice in progress begins anew under it.
   void slicePolicyIs( std::unique_ptr< SlicePolicy > policy );

   /// @name For people who look
   /// @{
   const TaskSchedulerStatistics & statistics() const { return statistics_; }
   /// Every task that was made for this scheduler and is still there, the oldest first, whether it
   /// waits or not. O(tasks).
   std::vector< Lumo::Ptr< const Task > > tasks() const;
   /// @}

 private:
   friend class Task;
   class Run;

   enum class Slice : unsigned char { none, inProgress, usedUp };

   struct Ring : Lumo::Link {
      Ring() { ringBegin(); }
   };

   /// For tasks: may one more item be worked on? Consults the policy only when its grant is used.
   bool askGoesOn() {
      if ( asksGranted_ == 0 ) { return consultPolicy(); }
      --asksGranted_;
      return true;
   }
   bool consultPolicy();
   void workReported();

   void waitingIs( Task & task );
   void waitingDel( Task & task );
   void priorityChanged( Task & task );
   void file( Task & task );

   void sliceBegins();
   void sliceEnds();

   std::uint32_t asksGranted_ = 0;
   Slice slice_ = Slice::none;
   Task * running_ = nullptr;
   Ring tasks_; ///< The places of all of them.
   Ring queue_; ///< The waiting tasks in the order in which they will run.
   std::size_t pending_ = 0;
   std::unique_ptr< SlicePolicy > policy_;
   std::function< void() > wakeUp_;
   TaskSchedulerStatistics statistics_;
};

/// The process-wide scheduler.
class VELO_PLATFORM_EXPORT TaskSchedulerRoot {
 public:
   /// The scheduler that was set, else one made on first use.
   static Lumo::Ptr< TaskScheduler > findOrCreateScheduler();

   /// Replaces it: an agent sets the one that its loop drives, a test one of its own. Tasks stay on
   /// the scheduler that they were made with. Null: the next `findOrCreateScheduler` makes one.
   static void schedulerIs( const Lumo::Ptr< TaskScheduler > & scheduler );
};

} // namespace Oru
