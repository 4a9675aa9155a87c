/// A client of the PBR counters stream with a transport that the test moves message by message.
///
/// It does what docs/STREAM.md says that a client may do, keeps what it learns, and has a fault for
/// everything that it should not have to see. It can break off anywhere and come back with the
/// token of any message that it has taken in.

#pragma once

#include "agent/stream/PbrStreams.h"
#include "agent/test/TestCall.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#include <velo/rpc/v1/pbr_counters.pb.h>

namespace VeloAgent::test {

using velo::rpc::v1::PbrCountersRecord;
using velo::rpc::v1::PbrCountersWatchRequest;
using velo::rpc::v1::PbrCountersWatchResponse;
using Opened = PbrCountersWatchResponse::Opened;

using TestCall = TestCallOf< PbrCountersWatchResponse >;

class StreamClient {
 public:
   using Name = std::pair< std::string, std::string >;
   struct Counters {
      std::uint64_t packets;
      bool operator==( const Counters & ) const = default;
   };

   /// All that a client keeps.
   struct Knowledge {
      std::map< std::uint64_t, Name > names;
      std::map< std::uint64_t, std::optional< Counters > > counters;
      bool inSync = false;
      std::string token;
   };

   explicit StreamClient( PbrStreams & streams, bool alwaysLongKeys = false )
      : streams_( streams ), alwaysLongKeys_( alwaysLongKeys ) {}
   ~StreamClient() {
      breaksOff();
      if ( oldCall_ ) { oldCall_->isOver(); }
   }
   StreamClient( const StreamClient & ) = delete;
   StreamClient & operator=( const StreamClient & ) = delete;

   /// Calls without a token.
   void begins() {
      breaksOff();
      memory_ = { Knowledge() };
      calls();
   }
   /// Calls with the token of the last message taken in, or of the one `messagesAgo` before it,
   /// whatever it has seen since. The old call goes on until the agent ends it.
   void returns( std::size_t messagesAgo = 0 ) {
      memory_.resize( memory_.size() - std::min( messagesAgo, memory_.size() - 1 ) );
      calls();
   }
   void breaksOff() {
      if ( call_ ) { call_->isOver(); }
      call_.reset();
   }

   /// Takes one message; false if there is none.
   bool takes() {
      const auto taken = call_ ? call_->take() : std::nullopt;
      if ( taken ) { takesIn( *taken ); }
      return taken.has_value();
   }

   const Knowledge & knows() const { return memory_.back(); }
   bool hasCall() const { return call_ != nullptr; }
   TestCall & call() { return *call_; }
   /// The one before the last, that the agent has to end.
   TestCall & oldCall() { return *oldCall_; }
   /// Messages since the client began, or was told to forget.
   std::size_t messages() const { return memory_.size() - 1; }

   /// Packets by policy map and class, as far as this client knows.
   std::map< Name, std::uint64_t > contents() const {
      std::map< Name, std::uint64_t > all;
      for ( const auto & [key, counters] : knows().counters ) {
         if ( counters ) { all[knows().names.at( key )] = counters->packets; }
      }
      return all;
   }

   std::vector< PbrCountersWatchResponse > log; ///< Of the last call; may be cleared.
   std::vector< std::string > faults;

 private:
   void calls() {
      if ( oldCall_ ) { oldCall_->isOver(); }
      if ( call_ && call_->closed() ) { call_->isOver(); }
      oldCall_ = std::exchange( call_, std::make_unique< TestCall >() );
      log.clear();
      inBatch_ = false;
      opening_ = true;
      PbrCountersWatchRequest request;
      request.set_resume_token( knows().token );
      request.set_always_long_keys( alwaysLongKeys_ );
      streams_.open( *call_, request );
   }

   void takesIn( const PbrCountersWatchResponse & message ) {
      log.push_back( message );
      if ( std::exchange( opening_, false ) != message.has_opened() ) {
         fault( "opened is not the first, once", message );
      }
      if ( message.resume_token().empty() ) { fault( "no token", message ); }
      Knowledge now = knows();
      now.token = message.resume_token();
      switch ( message.event_case() ) {
      case PbrCountersWatchResponse::kOpened:
         return opened( message, std::move( now ) );
      case PbrCountersWatchResponse::kInSync:
         if ( now.inSync ) { fault( "in sync twice", message ); }
         if ( inBatch_ ) { fault( "in sync within a batch", message ); }
         now.inSync = true;
         break;
      case PbrCountersWatchResponse::kBatch:
         for ( const auto & record : message.batch().records() ) { takesIn( record, now ); }
         inBatch_ = !message.batch().end_of_batch();
         break;
      default:
         fault( "nothing", message );
      }
      memory_.push_back( std::move( now ) );
   }
   void opened( const PbrCountersWatchResponse & message, Knowledge now ) {
      const auto outcome = message.opened().outcome();
      const bool hadToken = !knows().token.empty();
      if ( ( outcome == Opened::OUTCOME_SNAPSHOT ) == hadToken ) { fault( "outcome", message ); }
      if ( outcome != Opened::OUTCOME_RESUMED ) {
         memory_ = { Knowledge() };
         now = { .names = {}, .counters = {}, .token = message.resume_token() };
      }
      memory_.push_back( std::move( now ) );
   }
   void takesIn( const PbrCountersRecord & record, Knowledge & now ) {
      const std::uint64_t key = record.short_key();
      const auto known = now.names.find( key );
      const bool isNews = known == now.names.end();
      if ( record.has_long_key() != ( isNews || alwaysLongKeys_ ) ) {
         fault( "a long key missing, or told twice", record );
      }
      const Name name{ record.long_key().policy(), record.long_key().class_name() };
      if ( !isNews && record.has_long_key() && known->second != name ) {
         fault( "one short key, two long keys", record );
      }
      if ( record.deleted() ) {
         if ( isNews ) { fault( "deleted, and never told", record ); }
         if ( record.has_counters() ) { fault( "deleted, and counted", record ); }
         now.names.erase( key );
         now.counters.erase( key );
         return;
      }
      if ( isNews ) { now.names[key] = name; }
      auto & counters = now.counters[key];
      counters.reset();
      if ( record.has_counters() ) { counters = { .packets = record.counters().packets() }; }
   }
   void fault( const std::string & what, const google::protobuf::Message & in ) {
      faults.push_back( what + ": " + in.ShortDebugString() );
   }

   PbrStreams & streams_;
   const bool alwaysLongKeys_;
   std::unique_ptr< TestCall > call_;
   std::unique_ptr< TestCall > oldCall_;
   std::vector< Knowledge > memory_ = { Knowledge() }; ///< After each message.
   bool inBatch_ = false;
   bool opening_ = false;
};

} // namespace VeloAgent::test
