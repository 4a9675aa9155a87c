#include "agent/stream/MplsStream.h"

#include "agent/rpc/MplsConversion.h"

#include <velo/rpc/v1/mpls_route_programming.pb.h>

namespace VeloAgent {

using velo::rpc::v1::MplsRouteProgrammingWatchResponse;

MplsStream::MplsStream( MplsCall & call, WatchingClients & clients, const StreamOptions & options,
                        Oru::Clock & clock, const Listener & listener )
   : clients_( clients ),
     options_( options ),
     listener_( listener ),
     call_( options, clock ),
     client_( clients.enter( *this ) ) {
   call_.begin( call, *this );
}

MplsStream::~MplsStream() { clients_.leave( client_ ); }

void MplsStream::routeIs( const NamedMplsRoute & route ) {
   backlog_.memberIs( route.route.key(), route );
   if ( ready() ) { listener_.ready(); }
}

void MplsStream::compose() {
   if ( !opened_ ) {
      call_.message().mutable_opened();
      opened_ = true;
      call_.write( 0 );
   } else {
      call_.write( fillBatch( call_.message() ) );
   }
}

/// Goes on with the pass in progress. Returns how many routes the message has become.
std::size_t MplsStream::fillBatch( MplsRouteProgrammingWatchResponse & message ) {
   auto at = cursor_ ? backlog_.checkedIteratorFrom( *cursor_ ) : backlog_.checkedIterator();
   if ( !at ) { at = backlog_.checkedIterator(); }
   const Mpls::RouteKey first = at.key();
   std::size_t count = 0;
   std::size_t names = 0;
   for ( ; at && count < options_.recordsPerMessage && names < options_.namesPerMessage;
         ++at, ++count ) {
      toMessage( at.value().route, at.value().nexthopGroup,
                 *message.mutable_batch()->add_routes() );
      names += at.value().nexthopGroup.size();
   }
   if ( at ) {
      cursor_ = at.key();
      backlog_.deleteBetween( first, *cursor_ );
   } else {
      cursor_.reset();
      backlog_.deleteFrom( first );
   }
   return count;
}

void MplsStream::writable() {
   call_.taken();
   if ( closing_ ) { closeIfTold(); }
   if ( ready() ) { listener_.ready(); }
}

void MplsStream::closeWhenTold() {
   closing_ = true;
   closeIfTold();
}

void MplsStream::closeIfTold() {
   if ( call_.writable() && !ready() ) { closeNow(); }
}

ClientReport MplsStream::report() const {
   ClientReport report;
   report.stream = ClientStream::mplsRoutes;
   report.state = ClientState::inSync;
   report.queue = backlog_.size();
   call_.reportTo( report );
   return report;
}

} // namespace VeloAgent
