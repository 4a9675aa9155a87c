#pragma once

#include <cstddef>
#include <cstdint>

#include "Oru/Oru.h"
#include "Quon/Quon.h"
#include "VeloSdkRpc/detail/FirstException.h"

namespace VeloSdkRpc::detail {

/// How a run of the deletion scan ended.
enum class DeletionScanEnd : std::uint8_t { done, yielded, overtaken };

/// An output of a state machine that may hold entries of a previous life: what the first scan does
/// not write again is deleted afterwards.
///
///    reconciling   entries were there when the machine started
///    seen          the keys written since, while reconciling
///    bookmark      the key at which the deletion scan resumes
///
/// In an asynchronous machine the deletion scan runs in a task of its own. A call from outside that
/// task handles one entry and leaves the rest to it; inside, the scheduler decides.
///
/// Owner      the top-level state machine
/// Thread     event loop only
template< class SeenKey >
class ReconciledOutput {
 public:
   using Seen = Quon::HashMap2018< SeenKey >;

   bool reconciling() const { return reconciling_; }
   void reconcilingIs( bool reconciling ) { reconciling_ = reconciling; }

   const Seen & seen() const { return seen_; }
   void seenIs( const SeenKey & key ) { seen_.memberIs( key ); }
   void seenDel( const SeenKey & key ) { seen_.deleteMember( key ); }
   void seenDelAll() { seen_.memberDelAll(); }

   const Quon::Optional< std::uint64_t > & bookmark() const { return bookmark_; }
   bool useBookmark() const { return bookmark_.hasValue(); }

   const Lumo::Ptr< Oru::Task > & task() const { return task_; }
   /// Makes the task and subscribes `onRun` to its runs.
   void taskIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, Oru::TaskPriority priority,
                const Lumo::String & name, Lumo::Subscriber & onRun ) {
      const auto made = Lumo::makeNode< Oru::Task >( scheduler, priority, name );
      taskDel( onRun ); // Only now: the arguments may be its own.
      task_ = made;
      task_->publisher()->subscriberAdd( onRun );
   }
   /// Legal from inside the task's own run.
   void taskDel( Lumo::Subscriber & onRun ) {
      onRun.unlink();
      task_ = nullptr;
   }

   /// What one run of the deletion scan did.
   struct Run {
      std::size_t items = 0;
      std::size_t deletions = 0;
      DeletionScanEnd end = DeletionScanEnd::done;
      FirstException broken; ///< To be rethrown when the run has been accounted for.
   };

   /// Walks `output` from the bookmark and calls `del( key )` for every key that was not seen,
   /// until the end or, unless `synchronous`, until the task is to go on. Whoever hears of a
   /// deletion may cause another run; if that one gets to the end, this one is overtaken and stops.
   /// O(entries walked).
   template< class Output, class Del >
   Run deletionScan( const Output & output, bool synchronous, Del && del ) {
      Run run;
      auto at = bookmark_ ? output.iteratorFrom( *bookmark_ ) : output.iterator();
      while ( at ) {
         const std::uint64_t key = at.key();
         if ( !seen_[SeenKey( key )] ) {
            run.broken.guard( [&] { del( key ); } );
            ++run.deletions;
            if ( !reconciling_ ) {
               run.end = DeletionScanEnd::overtaken;
               return run;
            }
         }
         ++run.items;
         at.advance();
         if ( at && !synchronous && task_ &&
              ( !task_->taskCurrentlyRunning() || task_->taskShouldYield() ) ) {
            bookmark_ = at.key();
            run.end = DeletionScanEnd::yielded;
            return run;
         }
      }
      bookmark_.reset();
      return run;
   }

   /// The scan has reached the end: nothing is remembered any more.
   void reconciled() {
      reconciling_ = false;
      seenDelAll();
   }

 private:
   bool reconciling_ = false;
   Seen seen_;
   Quon::Optional< std::uint64_t > bookmark_;
   Lumo::Ptr< Oru::Task > task_;
};

} // namespace VeloSdkRpc::detail
