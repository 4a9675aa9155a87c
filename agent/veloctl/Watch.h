/// veloctl watch pbr|mpls: the agent's streams.

#pragma once

namespace VeloCtl {

class Commands;

void addWatch( Commands & commands );

} // namespace VeloCtl
