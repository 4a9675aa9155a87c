/// veloctl get: the counters of one class.

#pragma once

namespace VeloCtl {

class Commands;

void addGet( Commands & commands );

} // namespace VeloCtl
