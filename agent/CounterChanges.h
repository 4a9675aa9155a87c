/// What has to be done to the mounted tree, step by step: the common tongue of all sources.
///
/// The steps are in order. A class or policy map that a step names need not exist: setting creates
/// what is missing, removing what is not there does nothing.

#pragma once

#include "agent/CounterSnapshot.h"

#include <variant>
#include <vector>

namespace VeloAgent {

struct CountersSet {
   std::string policy;
   std::string className;
   Counters counters;

   bool operator==( const CountersSet & ) const = default;
};

struct ClassRemoved {
   std::string policy;
   std::string className;

   bool operator==( const ClassRemoved & ) const = default;
};

struct PolicyRemoved {
   std::string policy;

   bool operator==( const PolicyRemoved & ) const = default;
};

using CounterChange = std::variant< CountersSet, ClassRemoved, PolicyRemoved >;
using CounterChanges = std::vector< CounterChange >;

/// The steps that lead from one snapshot to the next. A counter is set to what it is now even if
/// that is less than before; what did not change is not mentioned. Linear in both snapshots.
CounterChanges changesBetween( const CounterSnapshot & before, const CounterSnapshot & after );

} // namespace VeloAgent
