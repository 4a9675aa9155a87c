/// A stream of messages to one client, without the transport that carries it.
///
///    owner                                     stream
///    fills message(), then write() ─────────►  the transport takes it
///    writable()  ◄───────────────────────────  it has been taken
///    ended()     ◄───────────────────────────  closed by us, or the client went away
///
/// Owner      itself, until `ended()` has returned
/// Thread     event loop only
/// Re-entry   no call here calls its owner back; an owner may call anything from inside its own
///            calls
/// Invariant  at most one message is on its way; `writable()` follows each as long as the stream is
///            open, `ended()` comes once and is the last

#pragma once

#include <string>

namespace VeloAgent {

/// Whose stream it is.
class MessageStreamOwner {
 public:
   virtual ~MessageStreamOwner() = default;

   /// The transport has taken the last message.
   virtual void writable() = 0;
   /// The stream is over and must not be touched again.
   virtual void ended() = 0;
};

/// Why the agent ends a stream.
enum class StreamEnd {
   takenOver,   ///< Another call goes on with it.
   exhausted,   ///< The client takes nothing, or there are too many.
   unavailable, ///< The agent shuts down.
};

template< typename Response >
class MessageStream {
 public:
   virtual ~MessageStream() = default;

   /// Null: nobody is told any more.
   virtual void ownerIs( MessageStreamOwner * owner ) = 0;

   /// Whether a message may be written now.
   virtual bool writable() const = 0;

   /// The message to be written next; empty when the last one has been taken.
   virtual Response & message() = 0;

   /// Sends `message()`. Only while `writable()`.
   virtual void write() = 0;

   /// Ends the stream behind what was written. Nothing if it is closed already.
   virtual void close( StreamEnd why, const std::string & text ) = 0;

   /// Ends the stream now, even if the client takes nothing: what was written and not taken is
   /// lost.
   virtual void abort( StreamEnd why, const std::string & text ) = 0;

   /// As the transport names the client.
   virtual std::string peer() const = 0;
};

} // namespace VeloAgent
