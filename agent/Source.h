/// Where counters come from.
///
/// Owner      the agent
/// Thread     event loop, with the SDK lock held. What a source does elsewhere is its own affair.
/// Invariant  at most one portion of changes is on its way: the next is offered only after
///            changesApplied(). So a source that is faster than the tree falls behind instead of
///            making a queue grow.

#pragma once

#include "agent/CounterChanges.h"

#include <chrono>
#include <string>

namespace VeloAgent {

/// Whom a source tells what it found.
class SourceListener {
 public:
   virtual ~SourceListener() = default;

   /// The next portion of changes; never empty.
   virtual void changesFound( CounterChanges changes ) = 0;
   /// Reading failed, and will be tried again.
   virtual void sourceFailed( const std::string & what, std::chrono::milliseconds retryIn ) = 0;
   virtual void sourceRecovered() = 0;
   /// Something that a person may want to know.
   virtual void noted( const std::string & what ) = 0;
};

class Source {
 public:
   virtual ~Source() = default;

   /// Begins to tell the listener. Once only. Throws when there is nothing to read; the text of the
   /// exception says what would be right.
   virtual void start() = 0;

   /// The last portion is in the tree.
   virtual void changesApplied() = 0;
};

} // namespace VeloAgent
