#include "agent/stream/PbrLines.h"

#include <utility>

namespace VeloAgent {

PbrLines::PbrLines( PbrFanout & fanout, WatchingClients & clients, Oru::Clock & clock,
                    const LineFormat & format, Output & output )
   : PbrFollower( fanout.keysOfNewClient( PbrClientKeys::KeepLongKeys::yes ) ),
     fanout_( fanout ),
     clients_( clients ),
     clock_( clock ),
     format_( format ),
     output_( output ),
     client_( clients.enter( *this ) ),
     lastTaken_( clock.now() ) {
   output_.writtenIs( [this] { writtenByNow(); } );
   fanout_.followerIs( *this );
}

PbrLines::~PbrLines() {
   output_.writtenIs( {} );
   fanout_.followerDel( *this );
   clients_.leave( client_ );
}

void PbrLines::maxRecordsAre( std::uint64_t count, std::function< void() > full ) {
   mayFollow_ = count;
   full_ = std::move( full );
}

void PbrLines::finish( std::function< void() > done ) {
   done_ = std::move( done );
   finishIfDone();
}

void PbrLines::stop() {
   mayFollow_ = 0;
   endBatch();
   output_.flush();
   finishIfDone();
}

bool PbrLines::ready() const { return mayFollow_ > 0 && output_.hasRoom() && keys_.hasNews(); }

void PbrLines::compose( Oru::Task & task ) {
   const bool ends = keys_.tell( [&]( const PbrNews & news ) {
      tell( news );
      return mayFollow_ > 0 && output_.hasRoom() && !task.taskShouldYield();
   } );
   if ( ends || mayFollow_ == 0 ) { endBatch(); }
   output_.flush();
   if ( output_.pending() == 0 ) { lastTaken_ = clock_.now(); }
   if ( mayFollow_ == 0 ) {
      if ( const auto full = std::exchange( full_, {} ) ) { full(); }
   }
   finishIfDone();
}

void PbrLines::tell( const PbrNews & news ) {
   DeliveredRecord delivered = { .shortKey = news.shortKey,
                                 .encodeLongKey = news.first,
                                 .deleteKey = !news.record,
                                 .policy = news.longKey->policyKey().name(),
                                 .className = news.longKey->name(),
                                 .aclRule = news.longKey->aclRule(),
                                 .longKeyIsNews = news.first,
                                 .counters = {},
                                 .deleted = !news.record };
   if ( news.record && news.record->data() ) {
      const auto & counters = news.record->data()->countData();
      delivered.counters = { .packets = counters.packets(), .bytes = counters.bytes() };
   }
   output_.line( format_.record( delivered ) );
   if ( !news.record ) { keys_.forget( news.shortKey ); }
   ++sinceBatch_;
   ++recordsSent_;
   --mayFollow_;
}

void PbrLines::endBatch() {
   if ( sinceBatch_ == 0 ) { return; }
   output_.line( format_.push( std::exchange( sinceBatch_, 0 ) ) );
   ++batchesSent_;
}

void PbrLines::writtenByNow() {
   lastTaken_ = clock_.now();
   if ( ready() ) { fanout_.wakeUp(); }
   finishIfDone();
}

void PbrLines::finishIfDone() {
   if ( !done_ ) { return; }
   const bool told = mayFollow_ == 0 || ( !keys_.hasNews() && fanout_.allDelivered() );
   if ( !( output_.error() != 0 || ( told && output_.pending() == 0 ) ) ) { return; }
   std::exchange( done_, {} )();
}

ClientReport PbrLines::report() const {
   const auto idle =
      std::chrono::duration_cast< std::chrono::milliseconds >( clock_.now() - lastTaken_ );
   return { .peer = "standard output",
            .stream = ClientStream::standardOutput,
            .state = keys_.walking() ? ClientState::snapshot : ClientState::inSync,
            .queue = keys_.pending(),
            .told = keys_.told(),
            .recordsSent = recordsSent_,
            .messagesSent = batchesSent_,
            .idleMs = static_cast< std::uint64_t >( idle.count() ) };
}

} // namespace VeloAgent
