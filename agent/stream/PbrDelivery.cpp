#include "agent/stream/PbrDelivery.h"

#include "VeloSdkRpc/PbrCountersMgr.h"

#include <utility>

namespace VeloAgent {

PbrDelivery::PbrDelivery( const Parts & parts, const StreamOptions & options )
   : counters_( parts.counters ),
     options_( options ),
     fanout_( Lumo::makeNode< PbrFanout >( parts.scheduler, parts.counters ) ),
     lines_( *fanout_, parts.clients, Oru::steadyClock(), parts.format, parts.output ),
     streams_( *fanout_, parts.clients, options, Oru::steadyClock() ),
     ticks_( parts.loop.context() ),
     deadline_( parts.loop.context() ) {}

void PbrDelivery::begin() {
   counters_.startWatching( fanout_ );
   tick();
}

void PbrDelivery::tick() {
   streams_.tick();
   lines_.finishIfDone();
   ticks_.expires_after( streams_.tickTime() );
   ticks_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
      if ( !error ) { tick(); }
   } ) );
}

void PbrDelivery::end( std::function< void() > written ) {
   written_ = std::move( written );
   deadline_.expires_after( options_.drainTime );
   deadline_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
      if ( error ) { return; }
      streams_.closeNow();
      linesEnd();
   } ) );
   streams_.drain();
   lines_.finish( [this] { linesEnd(); } );
   tick();
}

void PbrDelivery::linesEnd() {
   lines_.stop();
   if ( const auto written = std::exchange( written_, {} ) ) { written(); }
}

} // namespace VeloAgent
