#include "agent/recording/Recorder.h"

#include "agent/rpc/PbrCountersConversion.h"

#include <fmt/format.h>
#include <system_error>
#include <utility>
#include <velo/rpc/v1/recording.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;

constexpr std::uint32_t kFormat = 1;

void header( v1::RecordingEntry & entry ) {
   const auto now = std::chrono::system_clock::now().time_since_epoch();
   const auto seconds = std::chrono::duration_cast< std::chrono::seconds >( now );
   auto & to = *entry.mutable_header();
   to.set_format( kFormat );
   to.set_agent_version( VELO_AGENT_VERSION );
   to.set_began( static_cast< std::uint64_t >( seconds.count() ) );
}

} // namespace

Recorder::Recorder( const std::string & path, std::function< void( const std::string & ) > ended,
                    std::size_t longestQueue )
   : file_( path ), ended_( std::move( ended ) ), longestQueue_( longestQueue ) {
   add( 0, header );
   thread_ = std::thread( [this] { run(); } );
}

Recorder::~Recorder() {
   {
      const std::lock_guard lock( mutex_ );
      closing_ = true;
   }
   changed_.notify_one();
   thread_.join();
}

void Recorder::published( const CounterChanges & changes ) {
   add( changes.size(), [changes]( v1::RecordingEntry & entry ) {
      auto & to = *entry.mutable_pbr_counters()->mutable_changes();
      to.Reserve( static_cast< int >( changes.size() ) );
      for ( const CounterChange & change : changes ) { *to.Add() = messageOf( change ); }
   } );
}

void Recorder::published( const v1::PublishMplsRoutesRequest & request ) {
   add( static_cast< std::size_t >( request.changes_size() ),
        [request]( v1::RecordingEntry & entry ) { *entry.mutable_mpls_routes() = request; } );
}

void Recorder::published( const v1::PublishNexthopGroupsRequest & request ) {
   add( static_cast< std::size_t >( request.changes_size() ),
        [request]( v1::RecordingEntry & entry ) { *entry.mutable_nexthop_groups() = request; } );
}

void Recorder::add( std::size_t changes, Fill fill ) {
   using Microseconds = std::chrono::microseconds;
   const auto at = std::chrono::duration_cast< Microseconds >( Clock::now() - began_ );
   const std::lock_guard lock( mutex_ );
   if ( over_ || overflown_ ) { return; }
   queued_ += changes;
   if ( queued_ > longestQueue_ ) {
      overflown_ = true;
   } else {
      queue_.push_back(
         { static_cast< std::uint64_t >( at.count() ), changes, std::move( fill ) } );
   }
   changed_.notify_one();
}

void Recorder::run() try {
   std::unique_lock lock( mutex_ );
   while ( true ) {
      changed_.wait( lock, [this] { return !queue_.empty() || overflown_ || closing_; } );
      if ( queue_.empty() ) { break; }
      const Batch batch = std::move( queue_.front() );
      queue_.pop_front();
      lock.unlock();
      write( batch );
      lock.lock();
      queued_ -= batch.changes;
   }
   const bool overflown = overflown_;
   lock.unlock();
   if ( overflown ) { end( "the disk is too slow" ); }
} catch ( const std::system_error & error ) { end( error.code().message() ); }

void Recorder::write( const Batch & batch ) {
   v1::RecordingEntry entry;
   entry.set_at_us( batch.atUs );
   batch.fill( entry );
   file_.append( entry );
}

void Recorder::end( const std::string & why ) {
   {
      const std::lock_guard lock( mutex_ );
      over_ = true;
      queue_.clear();
   }
   ended_( fmt::format( "recording to {} has ended: {}; what was recorded before can be replayed",
                        file_.path(), why ) );
}

} // namespace VeloAgent
