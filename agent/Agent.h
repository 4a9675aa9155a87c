/// The program put together:
///
///    source ──changes──► tree writer ──► mounted tree ──► manager ──► fan-out ──lines──► output
///             (a task, in slices)        policyMap/counters/pbr    │  └───messages──► clients
///                                                (a task, in slices) (another one)
///
/// The other managers are mounted too (Managers.h).
///
/// Owner      main()
/// Thread     the thread that calls run(), which becomes the event loop's

#pragma once

#include "agent/Options.h"

namespace VeloAgent {

class StopSignals;

/// Streams to `outputFd` until a signal, a bound of `options` or a failure of the output ends it.
/// Throws std::exception where it cannot begin, or for the reason why it had to end.
void runAgent( const Options & options, const StopSignals & stopSignals, int outputFd );

} // namespace VeloAgent
