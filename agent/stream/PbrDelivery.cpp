#include "agent/stream/PbrDelivery.h"

#include "VeloSdkRpc/PbrCountersMgr.h"

#include <utility>

namespace VeloAgent {

PbrDelivery::PbrDelivery( const Parts & parts, const StreamOptions & options )
   : counters_( parts.counters ),
     options_( options ),
     fanout_( Lumo::makeNode< PbrFanout >( parts.scheduler, parts.counters ) ),
     streams_( *fanout_, parts.clients, options, Oru::steadyClock() ),
     ticks_( parts.loop.context() ),
     deadline_( parts.loop.context() ) {
   if ( parts.format ) {
      lines_.emplace( *fanout_, parts.clients, Oru::steadyClock(), *parts.format, parts.output );
   }
}

void PbrDelivery::begin() {
   counters_.startWatching( fanout_ );
   tick();
}

void PbrDelivery::tick() {
   streams_.tick();
   if ( lines_ ) { lines_->finishIfDone(); }
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
   tick();
   if ( !lines_ ) { return linesEnd(); }
   lines_->finish( [this] { linesEnd(); } );
}

void PbrDelivery::linesEnd() {
   if ( lines_ ) { lines_->stop(); }
   if ( const auto written = std::exchange( written_, {} ) ) { written(); }
}

} // namespace VeloAgent
