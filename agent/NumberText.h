/// Numbers as people write them in options and arguments.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace VeloAgent {

/// `text` as a decimal number; nothing unless it is one from `least` to `most`.
std::optional< std::uint64_t > numberFrom( std::string_view text, std::uint64_t least,
                                           std::uint64_t most );

} // namespace VeloAgent
