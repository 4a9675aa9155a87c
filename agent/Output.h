/// Whole lines to a file descriptor, and a way out when its reader stands still.
///
/// Writing waits while the reader is slow: that is the only brake there is on the stream, and a
/// good one, for meanwhile changes of one key coalesce upstream. But a process that is asked to end
/// must not hang in a write, so the wait also ends when `stop` becomes readable. For the same
/// reason a write is never larger than what a pipe that is ready takes at once.
///
/// Owner      the agent
/// Thread     event loop
/// Invariant  after a failure nothing more is written; half a line may have been
///
/// Needs SIGPIPE ignored, to hear of a reader that went away as of any other failure.

#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace VeloAgent {

class Output {
 public:
   /// Owns neither descriptor. `stop` may be -1: then a write waits for ever. `failed` is called
   /// once, at the first failure.
   Output( int fd, int stop, std::function< void() > failed )
      : fd_( fd ), stop_( stop ), failed_( std::move( failed ) ) {}

   /// Appends `text` and an end of line. Written at the latest by flush().
   void line( std::string_view text );

   /// Writes what is pending.
   void flush();

   /// An errno value, or 0. ECANCELED: the wait was ended by `stop`.
   int error() const { return error_; }

 private:
   static constexpr std::size_t kEnough = 64 * 1024;

   void write( std::string_view text );
   void fail( int error );
   /// Waits until `fd_` takes bytes; false after a failure.
   bool ready();

   int fd_;
   int stop_;
   std::function< void() > failed_;
   int error_ = 0;
   std::string pending_;
};

} // namespace VeloAgent
