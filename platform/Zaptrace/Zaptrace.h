#pragma once

#include "Lumo/Trace.h"

/// Zaptrace: the fast-trace handle of the state machines. Here it is the same switch board that
/// every other unit traces through, so one sink and one set of levels serve all.
namespace Zaptrace {

using TraceHandle = Lumo::TraceHandle;

} // namespace Zaptrace
