/// Text from outside, made fit for a line that a person reads.

#pragma once

#include <string>
#include <string_view>

namespace VeloAgent {

/// `text` with a backslash, every byte before `lowest` and every byte that is not ASCII written as
/// \xNN: it can neither break the line nor steer a terminal, and no two texts look the same.
std::string printable( std::string_view text, char lowest = ' ' );

} // namespace VeloAgent
