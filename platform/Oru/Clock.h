#pragma once

#include <chrono>

#include "Lumo/Export.h"

namespace Oru {

/// Where the scheduler's time comes from. Only differences mean anything.
class VELO_PLATFORM_EXPORT Clock {
 public:
   virtual ~Clock();
   virtual std::chrono::nanoseconds now() = 0;
};

/// The real one: monotonic, lives as long as the process.
VELO_PLATFORM_EXPORT Clock & steadyClock();

} // namespace Oru
