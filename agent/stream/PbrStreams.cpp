#include "agent/stream/PbrStreams.h"

#include <algorithm>
#include <fmt/format.h>
#include <velo/rpc/v1/pbr_counters.pb.h>

namespace VeloAgent {

using velo::rpc::v1::PbrCountersWatchRequest;

namespace {

using namespace std::chrono_literals;

PbrStream::Form formOf( const PbrCountersWatchRequest & request ) {
   return request.always_long_keys() ? PbrStream::Form::alwaysLongKeys : PbrStream::Form::compact;
}

} // namespace

PbrStreams::PbrStreams( PbrFanout & fanout, WatchingClients & clients,
                        const StreamOptions & options, Oru::Clock & clock )
   : fanout_( fanout ), clients_( clients ), options_( options ), clock_( clock ) {}

void PbrStreams::open( PbrCall & call, const PbrCountersWatchRequest & request ) {
   if ( draining_ ) { return call.close( StreamEnd::unavailable, "the agent shuts down" ); }
   const auto token = ResumeToken::from( request.resume_token() );
   if ( const auto found = token ? streams_.find( token->stream ) : streams_.end();
        found != streams_.end() ) {
      PbrStream & stream = *found->second;
      stream.takenOver();
      if ( stream.canResume( token->sequence, formOf( request ) ) ) {
         return stream.resume( call, token->sequence );
      }
      streams_.erase( found );
   }
   if ( !makeRoom() ) {
      return call.close( StreamEnd::exhausted,
                         fmt::format( "{} clients are being served, and no more than that may be",
                                      streams_.size() ) );
   }
   auto stream =
      std::make_unique< PbrStream >( fanout_, clients_, options_, clock_, formOf( request ) );
   stream->begin( call, !request.resume_token().empty() );
   const StreamId id = stream->id();
   streams_.emplace( id, std::move( stream ) );
}

bool PbrStreams::makeRoom() {
   if ( streams_.size() < options_.mostClients ) { return true; }
   // One that has a call is away since for ever from now.
   const auto since = []( const Streams::value_type & entry ) {
      return entry.second->awaySince().value_or( PbrStream::Call::Time::max() );
   };
   const auto longest = std::ranges::min_element( streams_, {}, since );
   if ( longest == streams_.end() || !longest->second->awaySince() ) { return false; }
   streams_.erase( longest );
   return true;
}

void PbrStreams::tick() {
   const PbrStream::Call::Time now = clock_.now();
   std::erase_if( streams_, [&]( const Streams::value_type & entry ) {
      entry.second->closeIfStuck();
      if ( draining_ ) { entry.second->closeWhenTold(); }
      const auto since = entry.second->awaySince();
      return since && now - *since >= options_.resumeTime;
   } );
}

/// Late by a quarter at most, and never busy with it.
std::chrono::milliseconds PbrStreams::tickTime() const {
   if ( draining_ ) { return 10ms; }
   return std::clamp< std::chrono::milliseconds >(
      std::min( options_.resumeTime, options_.stallTime ) / 4, 10ms, 1s );
}

void PbrStreams::drain() {
   draining_ = true;
   for ( const auto & [id, stream] : streams_ ) { stream->closeWhenTold(); }
}

void PbrStreams::closeNow() {
   for ( const auto & [id, stream] : streams_ ) { stream->closeNow(); }
}

} // namespace VeloAgent
