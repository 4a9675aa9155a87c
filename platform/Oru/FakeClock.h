#pragma once

#include <cstdint>

#include "Oru/Clock.h"

namespace Oru {

/// A clock for tests: stands still until it is told to go on, and counts how often it is read.
class FakeClock final : public Clock {
 public:
   std::chrono::nanoseconds now() override {
      ++readings_;
      return now_;
   }

   void advance( std::chrono::nanoseconds by ) { now_ += by; }
   std::uint64_t readings() const { return readings_; }

 private:
   std::chrono::nanoseconds now_{ 0 };
   std::uint64_t readings_ = 0;
};

} // namespace Oru
