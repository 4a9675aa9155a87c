#include "Oru/Clock.h"

namespace Oru {
namespace {

class SteadyClock final : public Clock {
 public:
   std::chrono::nanoseconds now() override {
      return std::chrono::steady_clock::now().time_since_epoch();
   }
};

} // namespace

Clock::~Clock() = default;

Clock & steadyClock() {
   // Never destroyed: schedulers that live until the end of the process still read it.
   static Clock & clock = *new SteadyClock;
   return clock;
}

} // namespace Oru
