/// A stream of messages to one client over gRPC.
///
///    event loop                                gRPC's threads
///    write( message ) ── StartWrite ────────►  the transport takes it
///    owner->writable() ◄─────── post ────────  OnWriteDone
///    owner->ended()    ◄─────── post ────────  OnDone: closed by us, or the client went away
///
/// Owner      itself, from the call of the service's method until `ended()` has returned
/// Thread     event loop only, but for the constructor

#pragma once

#include "agent/EventLoop.h"
#include "agent/stream/MessageStream.h"

#include <grpc/grpc.h>
#include <grpcpp/server_context.h>
#include <grpcpp/support/server_callback.h>
#include <string>

namespace VeloAgent {

template< typename Response >
class ServerStream final : public MessageStream< Response >,
                           private grpc::ServerWriteReactor< Response > {
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

   void ownerIs( MessageStreamOwner * owner ) override { owner_ = owner; }
   bool writable() const override { return !writing_ && !closed_; }
   Response & message() override { return message_; }
   void write() override {
      writing_ = true;
      this->StartWrite( &message_ );
   }

   void close( StreamEnd why, const std::string & text ) override {
      close( statusOf( why, text ) );
   }
   void abort( StreamEnd why, const std::string & text ) override {
      abort( statusOf( why, text ) );
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

   std::string peer() const override { return context_.peer(); }

 private:
   ServerStream( EventLoop & loop, grpc::CallbackServerContext & context )
      : loop_( loop ), context_( context ) {}
   ~ServerStream() override = default;

   static grpc::Status statusOf( StreamEnd why, const std::string & text ) {
      using grpc::StatusCode;
      switch ( why ) {
      case StreamEnd::takenOver:
         return { StatusCode::ABORTED, text };
      case StreamEnd::exhausted:
         return { StatusCode::RESOURCE_EXHAUSTED, text };
      default:
         return { StatusCode::UNAVAILABLE, text };
      }
   }

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
   MessageStreamOwner * owner_ = nullptr;
   Response message_;
   bool writing_ = false;
   bool closed_ = false;
};

} // namespace VeloAgent
