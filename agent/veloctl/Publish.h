/// veloctl publish pbr|mpls|nhg: the south side, in a driver's place.

#pragma once

namespace VeloCtl {

class Commands;

void addPublish( Commands & commands );

} // namespace VeloCtl
