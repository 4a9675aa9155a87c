/// The counters of all policy maps at one moment, as plain values.
///
/// What a source reads and compares, before anything enters the mounted tree. No node of the
/// platform is in here, so these values may be built and dropped on any thread.

#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace VeloAgent {

struct Counters {
   std::uint64_t packets = 0;
   std::uint64_t bytes = 0;

   /// Wraps at 2^64, as the kernel's own counters do.
   Counters & operator+=( const Counters & more ) {
      packets += more.packets;
      bytes += more.bytes;
      return *this;
   }
   bool operator==( const Counters & ) const = default;
};

/// By class name.
using ClassCounters = std::map< std::string, Counters, std::less<> >;

/// By policy map name. A policy map without a class is not in a snapshot.
using CounterSnapshot = std::map< std::string, ClassCounters, std::less<> >;

} // namespace VeloAgent
