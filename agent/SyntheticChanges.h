/// An endless, reproducible sequence of counter changes.
///
/// First every class of every policy map appears, with counters at zero. From then on each step
/// draws a class. A policy map or class that is absent comes back, with counters that start over;
/// one that is there is removed with the probability `churn`, else its counters go up. So as much
/// comes as goes, and the population keeps its size.
///
/// Owner      the synthetic source
/// Invariant  the sequence is a function of the options alone: not of time, nor of how it is cut
///            into portions

#pragma once

#include "agent/CounterChanges.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace VeloAgent {

struct SyntheticOptions {
   std::uint32_t policies = 10;
   std::uint32_t classes = 10;
   std::uint32_t changesPerSecond = 100;
   /// Of 100 changes to classes that are there, so many are removals.
   std::uint32_t churnPercent = 5;
   std::uint64_t seed = 1;
};

class SyntheticChanges {
 public:
   explicit SyntheticChanges( const SyntheticOptions & options );

   /// The next `count` changes of the sequence, or a few more: a policy map comes back whole.
   CounterChanges next( std::size_t count );

   /// How many changes it takes until every class has appeared.
   std::size_t populationSize() const { return std::size_t{ policies_ } * classes_; }

 private:
   /// Of so many removals, one takes the whole policy map.
   static constexpr std::uint32_t kRemovalsPerPolicy = 20;

   struct Class {
      Counters counters;
      bool present = false;
   };

   std::uint32_t draw( std::uint32_t bound );
   Class & at( std::uint32_t policy, std::uint32_t cls ) {
      return population_[std::size_t{ policy } * classes_ + cls];
   }
   void step( CounterChanges & changes );
   void appear( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes );
   void remove( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes );
   void removePolicy( std::uint32_t policy, CounterChanges & changes );
   void count( std::uint32_t policy, std::uint32_t cls, CounterChanges & changes );

   std::uint32_t policies_;
   std::uint32_t classes_;
   std::uint32_t churnPercent_;
   std::mt19937_64 random_;
   std::vector< Class > population_;
   std::vector< bool > policyPresent_;
   std::size_t populated_ = 0;
};

} // namespace VeloAgent
