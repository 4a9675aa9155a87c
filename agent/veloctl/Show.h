/// veloctl show status|backlog|tasks|clients|parked: what goes on inside the agent.

#pragma once

namespace VeloCtl {

class Commands;

void addShow( Commands & commands );

} // namespace VeloCtl
