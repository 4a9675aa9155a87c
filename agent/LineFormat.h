/// How one line of output looks: for programs (JSON) or for people (text).
///
/// A format sees plain values only and keeps nothing from one line to the next. The strings of a
/// record need to live as long as the call. Lines come without their end of line.

#pragma once

#include "agent/CounterSnapshot.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VeloAgent {

struct DeliveredRecord {
   std::uint64_t shortKey = 0;
   bool encodeLongKey = false;
   bool deleteKey = false;

   std::string_view policy;
   std::string_view className;
   std::string_view aclRule;
   /// Whoever reads the stream has not been told yet what `shortKey` stands for.
   bool longKeyIsNews = false;

   std::optional< Counters > counters;
   bool deleted = false;
};

class LineFormat {
 public:
   virtual ~LineFormat() = default;

   virtual std::string record( const DeliveredRecord & delivered ) const = 0;
   /// The end of a batch of `records` records.
   virtual std::string push( std::uint64_t records ) const = 0;
   virtual std::string sourceError( std::string_view what,
                                    std::chrono::milliseconds retryIn ) const = 0;
   virtual std::string sourceRecovered() const = 0;
   virtual std::string note( std::string_view what ) const = 0;
};

} // namespace VeloAgent
