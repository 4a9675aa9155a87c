/// A stream of messages to one client, as the event loop sees it.
///
///    event loop                                gRPC's threads
///    write( message ) ── StartWrite ────────►  the transport takes it
///    owner->writable() ◄─────── post ────────  OnWriteDone
///    owner->ended()    ◄─────── post ────────  OnDone: closed by us, or the client went away
///
/// Owner      itself, from the call of the service's method until `ended()` has returned
/// Thread     event loop only, but for the constructor
/// Re-entry   an owner may call anything here from inside its calls
/// Invariant  at most one message is on its way; `writable()` follows each, `ended()` comes once
/// and
///            is the last

#pragma once

#include "agent/EventLoop.h"

#include <grpc/grpc.h>
#include <grpcpp/server_context.h>
#include <grpcpp/support/server_callback.h>
#include <string>

namespace VeloAgent {

/// Whose stream it is.
class ServerStreamOwner {
 public:
   virtual ~ServerStreamOwner() = default;

   /// The transport has taken the last message.
   virtual void writable() = 0;
   /// The stream is over and must not be touched again.
   virtual void ended() = 0;
};

template< typename Response >
class ServerStream final : private grpc::ServerWriteReactor< Response > {
 public:
   /// Calls `opened( stream )` on the loop, which must set an owner or close the stream. Returns
   /// what the service's method returns. `context` is the call's.
   template< typename Opened >
   static grpc::ServerWriteReactor< Response > *
   open( EventLoop & loop, grpc::CallbackServerContext & context, Opened opened ) {
      auto * const stream = new ServerStream( loop, context );
      loop.post( [stream, opened = std::move( opened )]() mutable { opened( *stream ); } );
      return stream;
   }

   /// Null: nobody is told any more.
   void ownerIs( ServerStreamOwner * owner ) { owner_ = owner; }

   /// Whether a message may be written now.
   bool writable() const { return !writing_ && !closed_; }

   /// The message to be written next; empty when the last one has been taken.
   Response & message() { return message_; }

   /// Sends `message()`. Only while `writable()`.
   void write() {
      writing_ = true;
      this->StartWrite( &message_ );
   }

   /// Ends the stream behind what was written. Nothing if it is closed already.
   void close( const grpc::Status & status ) {
      if ( closed_ ) { return; }
      closed_ = true;
      this->Finish( status );
   }

   /// Ends the stream now, even if the client takes nothing: what was written and not taken is
   /// lost.
   void abort( const grpc::Status & status ) {
      if ( closed_ ) { return; }
      grpc_call_cancel_with_status( context_.c_call(),
                                    static_cast< grpc_status_code >( status.error_code() ),
                                    status.error_message().c_str(), nullptr );
      close( status );
   }

   /// As the transport names the client.
   std::string peer() const { return context_.peer(); }

 private:
   ServerStream( EventLoop & loop, grpc::CallbackServerContext & context )
      : loop_( loop ), context_( context ) {}
   ~ServerStream() override = default;

   void OnWriteDone( bool taken ) override {
      loop_.post( [this, taken] { writeDone( taken ); } );
   }
   void OnCancel() override {
      loop_.post( [this] { close( grpc::Status::CANCELLED ); } );
   }
   void OnDone() override {
      loop_.post( [this] { done(); } );
   }

   void writeDone( bool taken ) {
      writing_ = false;
      message_.Clear();
      if ( !taken ) { close( grpc::Status::CANCELLED ); }
      if ( owner_ && !closed_ ) { owner_->writable(); }
   }

   void done() {
      closed_ = true;
      if ( owner_ ) { owner_->ended(); }
      delete this;
   }

   EventLoop & loop_;
   grpc::CallbackServerContext & context_;
   ServerStreamOwner * owner_ = nullptr;
   Response message_;
   bool writing_ = false;
   bool closed_ = false;
};

} // namespace VeloAgent
