/// Writes changes into the mounted tree, in slices.
///
/// Takes the part of the switch's own writer: creates policy maps and classes, sets their counters,
/// removes them. Whoever watches the tree reacts at once, inside the write.
///
/// Owner      the agent
/// Thread     event loop only
/// Re-entry   `applied` may hand over the next changes
/// Invariant  one portion of changes at a time, applied in its order

#pragma once

#include "Oru/Oru.h"
#include "PolicyMap/PolicyMap.h"
#include "agent/CounterChanges.h"

#include <functional>
#include <string>

namespace VeloAgent {

class TreeWriter final : public Oru::Task {
 public:
   using Root = PolicyMap::Counters::PolicyMapTypeCounters;

   /// As urgent as the task that drains the stream, so that the two take turns: records leave while
   /// a large population still arrives.
   static constexpr Oru::TaskPriority kPriority = 3;

   /// `applied` is called when all changes are in the tree; `failed` when one could not be, with
   /// the reason, and the others go on.
   TreeWriter( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, const Lumo::Ptr< Root > & root,
               std::function< void() > applied,
               std::function< void( const std::string & ) > failed );

   /// Begins to apply `changes`. Not while others are being applied.
   void apply( CounterChanges changes );

 private:
   void taskRun() override;

   /// One step of the change in hand, whatever it throws.
   void tryStep();
   void step( const CountersSet & set );
   void step( const ClassRemoved & removed );
   void step( const PolicyRemoved & removed );

   Lumo::Ptr< Root > root_;
   std::function< void() > applied_;
   std::function< void( const std::string & ) > failed_;
   CounterChanges changes_;
   std::size_t next_ = 0;
   bool unfinished_ = false; ///< The change in hand takes further steps.
};

} // namespace VeloAgent
