// Requests as they come off the wire: parsed by protobuf, then converted. The first line names the
// request, the rest are its bytes.

#include <map>

#include <velo/rpc/v1/bgp_link_weights.pb.h>
#include <velo/rpc/v1/fib_overrides.pb.h>
#include <velo/rpc/v1/switch_state.pb.h>

#include "Ipnet/Ipnet.h"
#include "agent/JsonText.h"
#include "agent/rpc/BadRequest.h"
#include "agent/rpc/FibOverrideConversion.h"
#include "agent/rpc/MplsConversion.h"
#include "agent/rpc/Page.h"
#include "agent/rpc/PbrCountersConversion.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::Requests {
namespace {

namespace v1 = velo::rpc::v1;
using namespace VeloAgent;

template< class Message >
Message messageFrom( std::string_view bytes ) {
   Message message;
   if ( !message.ParseFromArray( bytes.data(), static_cast< int >( bytes.size() ) ) ) {
      throw BadRequest( "gRPC lets nothing pass that it cannot parse" );
   }
   return message;
}

void pbrCounters( std::string_view bytes ) {
   const CounterChanges changes =
      changesFrom( messageFrom< v1::PublishPbrCountersRequest >( bytes ) );
   v1::PublishPbrCountersRequest again;
   for ( const CounterChange & change : changes ) { *again.add_changes() = messageOf( change ); }
   require( changesFrom( again ) == changes, "changes come back from their messages" );
}

void mplsRoutes( std::string_view bytes ) {
   for ( const MplsRouteChange & change :
         changesFrom( messageFrom< v1::PublishMplsRoutesRequest >( bytes ) ) ) {
      const auto * const route = std::get_if< Mpls::Hardware::Route >( &change );
      const std::uint32_t label =
         route ? route->key().label() : std::get< Mpls::RouteKey >( change ).label();
      require( label < 1U << 20, "a label has 20 bits" );
      // Fatal if there is no such kind.
      if ( route && route->ackInfo() ) { route->ackInfo()->fecId().adjType(); }
   }
}

void nexthopGroups( std::string_view bytes ) {
   for ( const NexthopGroupChange & change :
         changesFrom( messageFrom< v1::PublishNexthopGroupsRequest >( bytes ) ) ) {
      require( !change.name || !change.name->empty(), "a group has a name or none" );
   }
}

/// As the service does it: what makes no sense is found by a configuration on the side.
void overridesSet( std::string_view bytes ) {
   const auto request = messageFrom< v1::FibOverridesSetRequest >( bytes );
   const auto overrides = convertedEach(
      "overrides", boundedElements( "overrides", request.overrides() ), overrideFrom );
   const auto config = Lumo::makeNode< Routing::Fib::FibOverrideConfig >();
   for ( const Routing::Fib::FibOverrideVia & each : overrides ) {
      v1::FibOverride message;
      toMessage( each, message );
      require( overrideFrom( message ) == each, "an override comes back from its message" );
      const auto & same = Quon::fromText< Routing::Fib::FibOverrideVia >( Quon::text( each ) );
      require( same == each, "an override comes back from its text form" );
   }
   forEach( "overrides", overrides, [&]( const auto & each ) { config->viaOverrideIs( each ); } );
}

void overridesDelete( std::string_view bytes ) {
   const auto request = messageFrom< v1::FibOverridesDeleteRequest >( bytes );
   for ( const Routing::Fib::FibOverrideViaMatcher & each : convertedEach(
            "matchers", boundedElements( "matchers", request.matchers() ), matcherFrom ) ) {
      // It may be the place at which a page ends.
      const std::string token = pageToken( Quon::text( each ) );
      require( keyFrom< Routing::Fib::FibOverrideViaMatcher >( token ) == each,
               "a key comes back from its page token" );
   }
}

/// Any token, and any text behind the mark that this process gives out.
template< class Key >
void page( std::string_view bytes ) {
   for ( const std::string & token : { std::string( bytes ), pageToken( bytes ) } ) {
      try {
         const Key key = keyFrom< Key >( token );
         require( pageToken( Quon::text( key ) ) == token, "a key has one page token" );
      } catch ( const BadRequest & ) {} // Refused, as it should be.
   }
}

void run( std::string_view input ) {
   using Check = void ( * )( std::string_view );
   static const std::map< std::string_view, Check > checks = {
      { "PublishPbrCounters", pbrCounters },
      { "PublishMplsRoutes", mplsRoutes },
      { "PublishNexthopGroups", nexthopGroups },
      { "FibOverridesSet", overridesSet },
      { "FibOverridesDelete", overridesDelete },
      { "FibOverridesList", page< Routing::Fib::FibOverrideViaMatcher > },
      { "BgpLinkWeightsList", page< Ipnet::IntfId > } };
   const auto [kind, bytes] = firstLine( input );
   const auto found = checks.find( kind );
   if ( found == checks.end() ) { return; }
   try {
      found->second( bytes );
   } catch ( const BadRequest & ) {
      // As it is sent; a text of more than about 8 kB could not be.
      const grpc::Status status = statusOfCurrentException();
      require( status.error_message().size() < 1'100, "a refusal can be sent" );
      require( isUtf8( status.error_message() ), "a refusal is text" );
      require( status.error_code() == grpc::StatusCode::INVALID_ARGUMENT &&
                  !status.error_message().empty(),
               "what is refused is the client's fault, and it is told why" );
   }
}

const Target target( "Requests", run );

} // namespace
} // namespace Fuzz::Requests
