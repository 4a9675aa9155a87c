#pragma once

#include <cstdint>

namespace Routing::NexthopGroup {

/// Names a next-hop group within this switch.
using NexthopGroupId = std::uint32_t;

} // namespace Routing::NexthopGroup
