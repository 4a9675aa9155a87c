#pragma once

#include <cstddef>

namespace VeloSdkRpc::simulation {

/// What this program has allocated with `new` and not given back, wherever: it replaces the
/// operators for the whole process. Unlike its resident size, the same on every machine.
struct LiveMemory {
   std::size_t blocks = 0;
   std::size_t bytes = 0;

   static LiveMemory now();
};

} // namespace VeloSdkRpc::simulation
