#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Lumo/Trace.h"

/// The scan of a child state machine, whatever it scans: where it is and what there is to do.

namespace VeloSdkRpc::detail {

/// Where the scan of a child state machine is. The numbers appear in traces and debuggers.
enum InputScanState : std::uint8_t {
   neverScanned = 0,
   yielded = 1,             ///< Resume at the bookmark.
   complete = 2,            ///< A pass has ended while events count.
   initialPassComplete = 3, ///< The first pass has ended; complete as long as events do not count.
};

/// Whether there is nothing left to scan for now.
inline bool scanIsComplete( InputScanState state, bool initialScanDone ) {
   return state == InputScanState::complete ||
          ( state == InputScanState::initialPassComplete && !initialScanDone );
}

inline InputScanState stateAfterPass( bool initialScanDone ) {
   return initialScanDone ? InputScanState::complete : InputScanState::initialPassComplete;
}

/// The name to trace the end of a pass by.
inline std::string passName( std::string_view machine, InputScanState after ) {
   return std::string( machine ) +
          ( after == InputScanState::initialPassComplete ? " initial" : "" );
}

/// Whether a slice of `machine` has anything to do: it has started and the pass is not complete.
template< class Machine >
bool scanIsDue( const Machine & machine ) {
   if ( !machine.initialized() || !machine.attached() ) { return false; }
   LUMO_TRACE( machine.traceHandle(), 9, " scan complete: {} resumed: {} scan: {}",
               machine.inputScanComplete0(), machine.inputScanState0() == InputScanState::yielded,
               machine.inputScanFlag() );
   return !machine.inputScanComplete0();
}

} // namespace VeloSdkRpc::detail
