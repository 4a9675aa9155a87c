#include "agent/rpc/MplsConversion.h"

#include "Plink/Plink.h"
#include "agent/rpc/BadRequest.h"
#include "agent/rpc/Names.h"

#include <velo/rpc/v1/mpls_route_programming.pb.h>
#include <velo/rpc/v1/switch_state.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;
using Mpls::RouteKey;
using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Plink::Fib::FecId;
using Acknowledgement = v1::MplsHardwareRoute::Acknowledgement;

constexpr std::uint32_t kHighestLabel = ( 1U << 20 ) - 1;

/// The hardware's own; any but Route::kProgrammed would do.
constexpr std::uint8_t kPending = 1;

RouteKey keyFrom( const char * field, std::uint32_t label ) {
   if ( label > kHighestLabel ) {
      throw BadRequest(
         fmt::format( "{} is {}; labels go from 0 to {}", field, label, kHighestLabel ) );
   }
   return RouteKey( label );
}

/// Those who look at the kind of an adjacency take it for granted that there is one.
FecId otherFecIdFrom( std::uint64_t value ) {
   const std::uint64_t kind = value >> Plink::Fib::adjTypePos();
   if ( kind >= Plink::Fib::adjTypeMax() ) {
      throw BadRequest(
         fmt::format( "fec_id is of kind {}, its highest 8 bits; there are kinds 0 to {}", kind,
                      Plink::Fib::adjTypeMax() - 1 ) );
   }
   const FecId fecId( value );
   if ( fecId.adjType() == Plink::Fib::AdjType::nexthopGroup ) {
      throw BadRequest( fmt::format( "fec_id is of kind {}, a next-hop group; nexthop_group_id "
                                     "takes the group's number",
                                     kind ) );
   }
   return fecId;
}

FecId fecIdFrom( const Acknowledgement & message ) {
   switch ( message.fec_case() ) {
   case Acknowledgement::kNexthopGroupId:
      return FecId::nexthopGroupIdToFecId( message.nexthop_group_id() );
   case Acknowledgement::kFecId:
      return otherFecIdFrom( message.fec_id() );
   case Acknowledgement::FEC_NOT_SET:
      break;
   }
   throw BadRequest( "leads nowhere; one of nexthop_group_id and fec_id says where to" );
}

AckInfo ackInfoFrom( const Acknowledgement & message ) {
   if ( message.ack() > UINT8_MAX ) {
      throw BadRequest(
         fmt::format( "ack is {}; it goes from 0 to {}", message.ack(), UINT8_MAX ) );
   }
   return AckInfo( fecIdFrom( message ), message.route_version(), message.nexthop_group_version(),
                   static_cast< std::uint8_t >( message.ack() ) );
}

std::uint8_t stateFrom( v1::MplsHardwareRoute::ProgrammingState state ) {
   switch ( state ) {
   case v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED:
      return Route::kProgrammed;
   case v1::MplsHardwareRoute::PROGRAMMING_STATE_PENDING:
      return kPending;
   default:
      throw BadRequest(
         fmt::format( "state is {}; PROGRAMMING_STATE_PROGRAMMED ({}) or "
                      "PROGRAMMING_STATE_PENDING ({}) would be one",
                      static_cast< int >( state ),
                      static_cast< int >( v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED ),
                      static_cast< int >( v1::MplsHardwareRoute::PROGRAMMING_STATE_PENDING ) ) );
   }
}

Route routeFrom( const v1::MplsHardwareRoute & message ) {
   const RouteKey key = keyFrom( "label", message.label() );
   const std::uint8_t state = stateFrom( message.state() );
   if ( !message.has_acknowledgement() ) { return Route( key, {}, state ); }
   const AckInfo ackInfo =
      refusingAt( "acknowledgement", [&] { return ackInfoFrom( message.acknowledgement() ); } );
   return Route( key, ackInfo, state );
}

MplsRouteChange routeChangeFrom( const v1::MplsRouteChange & change ) {
   switch ( change.change_case() ) {
   case v1::MplsRouteChange::kSetRoute:
      return refusingAt( "set_route", [&] { return routeFrom( change.set_route() ); } );
   case v1::MplsRouteChange::kRemoveRoute:
      return keyFrom( "remove_route", change.remove_route() );
   case v1::MplsRouteChange::CHANGE_NOT_SET:
      break;
   }
   throw BadRequest( "no change; one of set_route and remove_route would be one" );
}

NexthopGroupChange groupChangeFrom( const v1::NexthopGroupChange & change ) {
   NexthopGroupChange made{ .id = change.id(), .name = {} };
   if ( change.has_name() ) { made.name = Lumo::String( nameFrom( "name", change.name() ) ); }
   return made;
}

} // namespace

std::vector< MplsRouteChange > changesFrom( const v1::PublishMplsRoutesRequest & request ) {
   return convertedEach( "changes", boundedElements( "changes", request.changes() ),
                         routeChangeFrom );
}

std::vector< NexthopGroupChange > changesFrom( const v1::PublishNexthopGroupsRequest & request ) {
   return convertedEach( "changes", boundedElements( "changes", request.changes() ),
                         groupChangeFrom );
}

void toMessage( const Route & route, const Lumo::String & nexthopGroupName,
                v1::MplsProgrammedRoute & message ) {
   const AckInfo & ackInfo = *route.ackInfo();
   message.set_label( route.key().label() );
   message.set_fec_id( ackInfo.fecId().value() );
   message.set_nexthop_group_id( FecId::fecIdToNexthopGroupId( ackInfo.fecId() ) );
   message.set_nexthop_group_name( std::string( nexthopGroupName.view() ) );
   message.set_route_version( ackInfo.routeVersion() );
   message.set_nexthop_group_version( ackInfo.nexthopGroupVersion() );
   message.set_ack( ackInfo.ack() );
}

} // namespace VeloAgent
