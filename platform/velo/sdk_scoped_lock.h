#pragma once

#include <cstddef>

#include "Lumo/Export.h"

namespace velo {

/// Holds the SDK's lock, of which there is one per process, for its own lifetime.
///
///    velo::sdk_scoped_lock lock;   // from here on nobody else touches the SDK's state
///
/// The event loop holds the lock while it dispatches or runs a task and lets go in between. The
/// lock is fair: it is handed to the thread that has waited longest, so a thread that asks during
/// one slice has its turn before the next, however busy the loop is.
///
/// Recursive: a thread that holds the lock may take it again. While a thread holds it, that thread
/// counts as the event loop's (see Lumo/Thread.h).
///
/// Owner      a scope; destroyed by the thread that made it
/// Thread     any
class VELO_PLATFORM_EXPORT sdk_scoped_lock {
 public:
   /// Waits for its turn.
   sdk_scoped_lock();
   ~sdk_scoped_lock();

   sdk_scoped_lock( const sdk_scoped_lock & ) = delete;
   sdk_scoped_lock & operator=( const sdk_scoped_lock & ) = delete;

   /// How many threads wait for the lock now; for tests and for people who look.
   static std::size_t waiting();
};

} // namespace velo
