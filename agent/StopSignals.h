/// SIGINT and SIGTERM as a file descriptor that becomes readable.
///
/// A descriptor rather than a handler, for the event loop waits for descriptors.
///
/// Owner      the agent; made before any thread is, for every thread inherits the blocked signals
/// Invariant  once readable, the descriptor stays readable: nobody takes the signal out of it

#pragma once

namespace VeloAgent {

class StopSignals {
 public:
   /// Blocks the two signals for the process. Throws std::system_error.
   StopSignals();
   ~StopSignals();
   StopSignals( const StopSignals & ) = delete;
   StopSignals & operator=( const StopSignals & ) = delete;

   int fd() const { return fd_; }

 private:
   int fd_;
};

} // namespace VeloAgent
