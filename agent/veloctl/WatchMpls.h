/// veloctl watch mpls: MPLS routes as the hardware acknowledges them.

#pragma once

namespace VeloCtl {

class Commands;

void addWatchMpls( Commands & watch );

} // namespace VeloCtl
