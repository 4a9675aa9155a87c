#pragma once

#include "Lumo/Export.h"

/// The one-thread rule of the event loop, checked in debug builds.
///
/// Entities, collections and publishers belong to whoever runs the event loop. The first thread
/// that touches one becomes the loop's thread; `velo::sdk_scoped_lock` passes the role on while it
/// is held, so that an RPC thread under the lock counts as the loop. Any other access is fatal.

namespace Lumo::Impl {

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS
/// Fatal on a thread that does not run the event loop now.
VELO_PLATFORM_EXPORT void checkEventLoopThread();
#else
inline void checkEventLoopThread() {}
#endif

/// Makes the calling thread the event loop's thread and returns a token of the one before it.
VELO_PLATFORM_EXPORT unsigned long eventLoopThreadIsCurrent();

/// Gives the role back to the thread that `token` stands for (0: nobody yet).
VELO_PLATFORM_EXPORT void eventLoopThreadIs( unsigned long token );

} // namespace Lumo::Impl
