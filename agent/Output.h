/// Whole lines to a file descriptor, without ever waiting for its reader.
///
///    line() ──► pending ──► as much as the descriptor takes at once
///                  └──────► the rest when it takes bytes again
///
/// A reader that is slow makes `hasRoom()` false: whoever has much to say asks first, and so
/// meanwhile changes of one key coalesce where they are waiting. A write is never larger than what
/// a pipe that is ready takes at once.
///
/// Owner      the agent
/// Thread     event loop only
/// Re-entry   the callbacks may call anything here
/// Invariant  after a failure nothing more is written; half a line may have been
///
/// Needs SIGPIPE ignored, to hear of a reader that went away as of any other failure.

#pragma once

#include "agent/WritableWatch.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace VeloAgent {

class Output {
 public:
   /// Does not own `fd`. `failed` is called once, at the first failure.
   Output( EventLoop & loop, int fd, std::function< void() > failed )
      : loop_( loop ), fd_( fd ), failed_( std::move( failed ) ) {}
   Output( const Output & ) = delete;
   Output & operator=( const Output & ) = delete;

   /// Called whenever all lines have been written that had to wait.
   void writtenIs( std::function< void() > written ) { written_ = std::move( written ); }

   /// Appends `text` and an end of line. Written at the latest after flush(), as the reader goes.
   void line( std::string_view text );

   /// Begins to write what is pending.
   void flush();

   /// Whether much should be said now.
   bool hasRoom() const { return error_ == 0 && pending() < kEnough; }
   /// Bytes that wait for the reader.
   std::size_t pending() const { return pending_.size() - begin_; }

   /// An errno value, or 0.
   int error() const { return error_; }

 private:
   static constexpr std::size_t kEnough = 65'536;

   /// Writes as long as the descriptor takes bytes at once.
   void write();
   void wait();
   void fail( int error );
   /// Whether `fd_` takes bytes, or fails with its reason, without waiting.
   bool isReady();

   EventLoop & loop_;
   int fd_;
   std::function< void() > failed_;
   std::function< void() > written_;
   int error_ = 0;
   std::string pending_;
   std::size_t begin_ = 0; ///< Before it, `pending_` has been written.
   std::optional< WritableWatch > watch_;
   bool waiting_ = false;
};

} // namespace VeloAgent
