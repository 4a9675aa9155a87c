/// A client's resync of a table: one client stream, whose end completes the bracket.
///
///    gRPC's threads                                event loop
///    the call arrives ────────────────────────►    another one's? ABORTED. Else: bracket begins
///          ┌───────────────────── read ──────────  ◄─┐
///    message: parsed, checked as a whole ─────►    set
///    end of stream: is the client still there? ─►  yes: bracket completes, answer
///                                                  no:  abandoned
///
/// The next message is read when the one before is set: so a client that is faster than the loop
/// waits, and the others have their turns between two messages.
///
/// Abandoned means that nothing is removed: the manager stays within its bracket, where it does
/// what it is told as it does outside, and the next one to begin starts over.
///
/// One at a time; but a client that has said nothing for as long as people have patience gives way
/// when another one comes, or its hanging would keep all others out.
///
/// Two ends of a stream look the same to whoever reads: the client has sent all, or it broke. What
/// tells them apart is that a stream that broke takes nothing any more, so the server's initial
/// metadata are sent at the end. And since a message that cannot be parsed would look like an end
/// too, messages are read as bytes and parsed here.
///
/// Owner      itself, until gRPC is done with it
/// Thread     one at a time: gRPC's while something is awaited, else the event loop

#pragma once

#include "agent/EventLoop.h"
#include "agent/rpc/BadRequest.h"

#include <chrono>
#include <cstdint>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/server_callback.h>

namespace VeloAgent {

/// What can be resynced. It has
///
///    using Request, Response     the messages
///    valuesFrom( request )       what a message says; any thread. Errors: BadRequest
///    set( values )               all of it or nothing. Errors: BadRequest
///    size()                      how many elements there are
///    resyncInit(), resyncComplete()
///    patience                    how long a call may be silent while another one is there
///    ResyncCall * resyncing      the call in progress; null: none
template< typename Table >
class ResyncCall final : public grpc::ServerReadReactor< grpc::ByteBuffer > {
 public:
   /// What the service's method returns. `table` outlives the server.
   static ResyncCall * begin( EventLoop & loop, Table & table, grpc::ByteBuffer & response ) {
      auto * const call = new ResyncCall( loop, table, response );
      loop.post( [call] { call->begun(); } );
      return call;
   }

 private:
   ResyncCall( EventLoop & loop, Table & table, grpc::ByteBuffer & response )
      : loop_( loop ), table_( table ), response_( response ) {}

   using Clock = std::chrono::steady_clock;

   // gRPC's threads ------------------------------------------------------------------------------

   void OnReadDone( bool more ) override {
      if ( !more ) {
         return loop_.post( [this] { allRead(); } );
      }
      loop_.post( [this, message = parsed()] { received( message ); } );
   }
   void OnSendInitialMetadataDone( bool clientIsThere ) override {
      loop_.post( [this, clientIsThere] { ended( clientIsThere ); } );
   }
   /// Behind whatever else the loop was told.
   void OnDone() override {
      loop_.post( [this] { delete this; } );
   }

   struct Message {
      grpc::Status status;
      typename Table::Values values;
   };
   Message parsed() {
      Message message;
      ++messages_;
      message.status = checked( [&] {
         typename Table::Request request;
         if ( !parse( request ) ) { throw BadRequest( "cannot be parsed" ); }
         message.values = Table::valuesFrom( request );
      } );
      return message;
   }
   bool parse( typename Table::Request & request ) {
      return grpc::SerializationTraits< typename Table::Request >::Deserialize( &message_,
                                                                                &request )
         .ok();
   }

   // Event loop ----------------------------------------------------------------------------------

   void begun() {
      if ( table_.resyncing && !table_.resyncing->givesWay() ) {
         return Finish( { grpc::StatusCode::ABORTED,
                          "another client's resync is in progress; try again when it is over" } );
      }
      table_.resyncing = this;
      table_.resyncInit();
      read();
   }

   void read() {
      heardAt_ = Clock::now();
      StartRead( &message_ );
   }

   /// Ends in favour of another, if it was silent for too long.
   bool givesWay() {
      using std::chrono::milliseconds;
      const auto silence = std::chrono::duration_cast< milliseconds >( Clock::now() - heardAt_ );
      if ( silence < table_.patience ) { return false; }
      end( { grpc::StatusCode::ABORTED,
             fmt::format( "nothing was sent for {} ms, and another client's resync has begun",
                          silence.count() ) } );
      return true;
   }

   void received( const Message & message ) {
      if ( over_ ) { return; }
      const grpc::Status status =
         message.status.ok() ? checked( [&] { table_.set( message.values ); } ) : message.status;
      if ( !status.ok() ) { return end( status ); }
      set_ += message.values.size();
      read();
   }

   void allRead() {
      if ( !over_ ) { StartSendInitialMetadata(); }
   }

   void ended( bool clientIsThere ) {
      if ( over_ ) { return; }
      if ( !clientIsThere ) { return end( grpc::Status::CANCELLED ); }
      const std::size_t before = table_.size();
      const grpc::Status status = statusOf( [&] { table_.resyncComplete(); } );
      typename Table::Response response;
      response.set_set( set_ );
      response.set_deleted( before - table_.size() );
      bool own = false;
      grpc::SerializationTraits< typename Table::Response >::Serialize( response, &response_,
                                                                        &own );
      end( status );
   }

   void end( const grpc::Status & status ) {
      over_ = true;
      table_.resyncing = nullptr;
      Finish( status );
   }

   // ---------------------------------------------------------------------------------------------

   /// How `work` on the message in hand went.
   template< typename Work >
   grpc::Status checked( const Work & work ) const {
      const auto where = [this] { return fmt::format( "message {}", messages_ ); };
      return statusOf( [&] { refusingAt( where, work ); } );
   }

   EventLoop & loop_;
   Table & table_;
   grpc::ByteBuffer & response_;
   grpc::ByteBuffer message_;
   std::uint64_t messages_ = 0; ///< Read so far.
   std::uint64_t set_ = 0;
   Clock::time_point heardAt_;
   bool over_ = false; ///< What was begun and ends now ends in vain.
};

} // namespace VeloAgent
