/// veloctl replay: a recording of the south side, told to the agent again.

#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace VeloCtl {

class Commands;

void addReplay( Commands & commands );

/// When, after the replay began, an entry is due that was recorded at `atUs`. Without a speed:
/// at once.
std::chrono::microseconds dueAt( std::uint64_t atUs, std::optional< double > speed );

} // namespace VeloCtl
