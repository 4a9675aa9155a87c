/// Writes changes into the mounted tree, in slices.
///
/// Takes the part of the switch's own writer: creates policy maps and classes, sets their counters,
/// removes them. Whoever watches the tree reacts at once, inside the write.
///
/// Owner      the agent
/// Thread     event loop only
/// Re-entry   whoever is told that its changes are applied may hand over the next
/// Invariant  one portion of changes at a time, in the order in which they were handed over, each
///            applied in its own order

#pragma once

#include "Oru/Oru.h"
#include "PolicyMap/PolicyMap.h"
#include "agent/CounterChanges.h"

#include <deque>
#include <functional>
#include <string>

namespace VeloAgent {

class TreeWriter final : public Oru::Task {
 public:
   using Root = PolicyMap::Counters::PolicyMapTypeCounters;

   /// As urgent as the task that drains the stream, so that the two take turns: records leave while
   /// a large population still arrives.
   static constexpr Oru::TaskPriority kPriority = 3;

   /// `failed` is called when a change could not be applied, with the reason; the others go on.
   TreeWriter( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, const Lumo::Ptr< Root > & root,
               std::function< void( const std::string & ) > failed );

   /// Applies `changes` behind those that were handed over before, and calls `applied` when all of
   /// them are in the tree. Never before this returns.
   void apply( CounterChanges changes, std::function< void() > applied );

 private:
   struct Portion {
      CounterChanges changes;
      std::function< void() > applied;
   };

   void taskRun() override;

   /// One step of the change in hand, whatever it throws.
   void tryStep();
   void step( const CountersSet & set );
   void step( const ClassRemoved & removed );
   void step( const PolicyRemoved & removed );

   /// What is left of the portion in hand.
   std::size_t left() const { return portions_.front().changes.size() - next_; }

   Lumo::Ptr< Root > root_;
   std::function< void( const std::string & ) > failed_;
   std::deque< Portion > portions_; ///< The first one is in hand.
   std::size_t next_ = 0;           ///< The change in hand.
   bool unfinished_ = false;        ///< It takes further steps.
};

} // namespace VeloAgent
