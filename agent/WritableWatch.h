/// Tells the event loop when a descriptor takes bytes again, and leaves the descriptor as it is.
///
/// Standard output is often shared with other programs, and whether it blocks is a property that
/// all of them share. So it is not made non-blocking: a watch of the kernel's stands between, and
/// the loop waits for that.
///
/// Owner      whoever writes
/// Thread     event loop only

#pragma once

#include "agent/EventLoop.h"

#include <functional>

namespace VeloAgent {

class WritableWatch {
 public:
   /// `fd` outlives this and is of a kind that may have to be waited for: a pipe, a socket, a
   /// terminal. Throws std::system_error.
   WritableWatch( EventLoop & loop, int fd );

   /// Calls `writable` once, when bytes can be written or writing would fail. One wait at a time.
   void wait( std::function< void() > writable );

 private:
   int fd_;
   asio::posix::stream_descriptor watch_;
};

} // namespace VeloAgent
