/// The connection to the agent, and the calls over it.
///
/// gRPC ends here: nothing else of veloctl includes its headers. What a call is named follows from
/// the types of its messages, for every method has its own request and response. For the same
/// reason one class serves calls of every kind: a message or many in either direction.
///
/// Thread     that of the caller; nothing is called back

#pragma once

#include "agent/veloctl/AgentAddress.h"

#include <chrono>
#include <google/protobuf/message.h>
#include <memory>
#include <string>

namespace VeloCtl {

class Client {
 public:
   /// Connects with the first call. Throws a Failure if `address` cannot be right.
   explicit Client( const AgentAddress & address );
   ~Client();
   Client( const Client & ) = delete;
   Client & operator=( const Client & ) = delete;

   /// Asks and waits for the answer. Throws CallFailed.
   template< typename Response >
   Response call( const google::protobuf::Message & request ) {
      Response response;
      callInto( request, response );
      return response;
   }

 private:
   friend class Call;
   struct Connection;

   void callInto( const google::protobuf::Message & request, google::protobuf::Message & response );

   std::unique_ptr< Connection > connection_;
};

/// One call in progress. Gone before its client; given up if it has not ended by then.
class Call {
 public:
   using Clock = std::chrono::system_clock;
   enum class Next { message, nothingYet, end };

   /// `request` only says which method. Every message that comes is put into `response`.
   Call( Client & client, const google::protobuf::Message & request,
         google::protobuf::Message & response );
   ~Call();
   Call( const Call & ) = delete;
   Call & operator=( const Call & ) = delete;

   /// Returns when there is room for another. Throws CallFailed if the agent takes no more.
   void send( const google::protobuf::Message & request );
   void endSending();

   /// Waits for a message until `deadline`. At the end of the stream: throws CallFailed if it did
   /// not end well.
   Next next( Clock::time_point deadline );
   /// The same, with CallFailed if the agent takes longer than its timeout.
   Next next();

 private:
   struct Operations;

   std::unique_ptr< Operations > operations_;
};

} // namespace VeloCtl
