/// An agent that says what a test wants it to say, over a real connection.
///
///    FakeAgent agent;
///    agent.serve( "Introspection/GetStatus", []( ServedCall & call ) { call.send( status ); } );
///
/// Serves one call after the other, on a thread of its own. Handlers are given before the first
/// call and outlive the agent.

#pragma once

#include <functional>
#include <google/protobuf/message.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace VeloCtl {

/// For handlers to throw: ends the call with this status, `code` in gRPC's numbers.
class Refusal : public std::runtime_error {
 public:
   Refusal( int code, const std::string & text ) : std::runtime_error( text ), code_( code ) {}
   int code() const { return code_; }

 private:
   int code_;
};

inline constexpr int kInvalidArgument = 3;
inline constexpr int kNotFound = 5;
inline constexpr int kResourceExhausted = 8;
inline constexpr int kAborted = 10;
inline constexpr int kUnavailable = 14;

/// The agent's end of a call. Both return whether the client was still there.
class ServedCall {
 public:
   virtual ~ServedCall() = default;
   /// Also false when the client has sent everything.
   virtual bool receive( google::protobuf::Message & into ) = 0;
   virtual bool send( const google::protobuf::Message & message ) = 0;
   /// Until the client has given up.
   virtual void awaitCancellation() = 0;
};

class FakeAgent {
 public:
   using Handler = std::function< void( ServedCall & call ) >;

   FakeAgent();
   ~FakeAgent();
   FakeAgent( const FakeAgent & ) = delete;
   FakeAgent & operator=( const FakeAgent & ) = delete;

   /// `method` as "Service/Method"; the package goes without saying.
   void serve( const std::string & method, Handler handler );

   /// Waits for the handlers that have begun. What was written before is seen by all who come
   /// later, and what they noted may be read.
   void synchronize();
   /// Serves no more, and returns when no handler runs.
   void close();

   /// As --agent takes it.
   const std::string & address() const;

 private:
   struct Server;

   std::unique_ptr< Server > server_;
};

} // namespace VeloCtl
