#pragma once

#include <cstdint>

namespace Lumo {

/// How often this process has called `operator new` so far: the difference over a scope tells what
/// the scope allocated. For tests and benchmarks that link `velo::allocation_count`, which
/// replaces the global operators (not those for over-aligned types). Any thread.
std::uint64_t allocationCount();

} // namespace Lumo
