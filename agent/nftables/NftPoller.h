/// Turns one reading of a table after the other into changes, and failures into waiting times.
///
/// Owner      the reader that calls it at the right times
/// Thread     any, one at a time
/// Invariant  a reading that fails changes nothing: the next good one is compared with the last
///            good one, so nothing that is known gets lost meanwhile
///
/// A table that vanished is no failure: it has no counters any more, so all its policy maps go, and
/// come back with it.

#pragma once

#include "agent/CounterChanges.h"
#include "agent/nftables/NftJson.h"

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace VeloAgent {

struct NftFinding {
   CounterChanges changes;
   /// Why the reading failed; the next attempt is `wait` away.
   std::optional< std::string > failure;
   /// This reading succeeded after one that failed.
   bool recovered = false;
   /// What a person may want to know, each told once.
   std::vector< std::string > notes;
   std::chrono::milliseconds wait{ 0 };

   bool hasNews() const { return !changes.empty() || failure || recovered || !notes.empty(); }
};

class NftPoller {
 public:
   /// Throws NftNoSuchTable, or any other exception for a reading that failed.
   using Read = std::function< NftCounters() >;

   static constexpr std::chrono::milliseconds kLongestWait{ 30'000 };

   NftPoller( Read read, std::chrono::milliseconds interval );

   /// The reading at start-up, where every failure, a missing table too, is the caller's to report:
   /// throws what `read` throws.
   NftFinding firstPoll();

   /// Any later reading. Throws nothing that concerns the reading.
   NftFinding poll();

 private:
   NftFinding taken( NftCounters now );
   NftFinding tableIsGone( const std::string & what );
   NftFinding failed( const std::string & what );

   Read read_;
   std::chrono::milliseconds interval_;
   CounterSnapshot last_;
   std::set< std::string > misnamed_;
   bool gone_ = false;
   unsigned failures_ = 0;
};

} // namespace VeloAgent
