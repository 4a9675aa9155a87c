/// The call through which a stream reaches its client, and what is known of the client by it: what
/// it was sent, when it took something last, and what becomes of it when it takes nothing.
///
/// Owner      the stream, which is the call's owner too and passes on what it is told
/// Thread     event loop only

#pragma once

#include "Oru/Oru.h"
#include "agent/stream/MessageStream.h"
#include "agent/stream/StreamOptions.h"
#include "agent/stream/WatchingClients.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <utility>

namespace VeloAgent {

template< typename Response >
class ClientCall {
 public:
   using Time = std::chrono::nanoseconds;

   /// Without a call as yet. Both outlive this.
   ClientCall( const StreamOptions & options, Oru::Clock & clock )
      : options_( options ), clock_( clock ), lastTaken_( clock.now() ) {}
   ~ClientCall() {
      if ( call_ ) { call_->ownerIs( nullptr ); }
   }
   ClientCall( const ClientCall & ) = delete;
   ClientCall & operator=( const ClientCall & ) = delete;

   /// Only when there is none.
   void begin( MessageStream< Response > & call, MessageStreamOwner & owner ) {
      call_ = &call;
      call_->ownerIs( &owner );
      peer_ = call.peer();
      lastTaken_ = clock_.now();
   }
   /// Ends the call, if there is one, in favour of another: its owner hears no more of it.
   void takenOver() {
      MessageStream< Response > * const call = std::exchange( call_, nullptr );
      if ( !call ) { return; }
      call->ownerIs( nullptr );
      call->abort( StreamEnd::takenOver, "another call came with the token of this stream" );
   }
   /// The owner was told that it ended.
   void over() {
      call_ = nullptr;
      lastTaken_ = clock_.now();
   }
   /// The owner was told that the last message was taken.
   void taken() { lastTaken_ = clock_.now(); }

   /// Since when there is no call; nothing if there is one.
   std::optional< Time > awaySince() const {
      return call_ ? std::nullopt : std::optional( lastTaken_ );
   }

   bool writable() const { return call_ && call_->writable(); }
   /// To be filled and then written. Only while `writable()`.
   Response & message() { return call_->message(); }
   void write( std::size_t records ) {
      call_->write();
      lastTaken_ = clock_.now();
      recordsSent_ += records;
      ++messagesSent_;
   }

   /// Closes a call that has taken nothing for too long; `hint` tells the client what it may do.
   void closeIfStuck( const char * hint ) {
      if ( !call_ || call_->writable() || clock_.now() - lastTaken_ < options_.stallTime ) {
         return;
      }
      call_->abort( StreamEnd::exhausted, fmt::format( "nothing was taken for {} ms; {}",
                                                       options_.stallTime.count(), hint ) );
   }
   /// Closes the call for the shutdown; what is on its way is lost if it was not taken.
   void closeNow() {
      if ( !call_ ) { return; }
      constexpr const char * kWhy = "the agent shuts down; try again";
      if ( call_->writable() ) {
         call_->close( StreamEnd::unavailable, kWhy );
      } else {
         call_->abort( StreamEnd::unavailable, kWhy );
      }
   }

   /// What is known of the client by its call.
   void reportTo( ClientReport & report ) const {
      const auto idle =
         std::chrono::duration_cast< std::chrono::milliseconds >( clock_.now() - lastTaken_ );
      report.peer = peer_;
      report.recordsSent = recordsSent_;
      report.messagesSent = messagesSent_;
      report.idleMs = static_cast< std::uint64_t >( idle.count() );
   }

 private:
   const StreamOptions & options_;
   Oru::Clock & clock_;
   MessageStream< Response > * call_ = nullptr;
   std::string peer_;
   Time lastTaken_; ///< Or written, or the call began or ended.
   std::uint64_t recordsSent_ = 0;
   std::uint64_t messagesSent_ = 0;
};

} // namespace VeloAgent
