/// veloctl watch pbr: the PBR counters, as lines or as a live table.

#pragma once

namespace VeloCtl {

class Commands;

void addWatchPbr( Commands & watch );

} // namespace VeloCtl
