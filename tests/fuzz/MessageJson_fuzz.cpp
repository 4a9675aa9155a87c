// What people write for veloctl: messages as JSON, addresses. The first line says what the rest is.

#include <map>
#include <memory>

#include <nlohmann/json.hpp>
#include <velo/rpc/v1/bgp_link_weights.pb.h>
#include <velo/rpc/v1/fib_overrides.pb.h>
#include <velo/rpc/v1/introspection.pb.h>
#include <velo/rpc/v1/pbr_counters.pb.h>
#include <velo/rpc/v1/recording.pb.h>

#include "Ipnet/Ipnet.h"
#include "agent/JsonText.h"
#include "agent/veloctl/Addresses.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/MessageJson.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::MessageJson {
namespace {

namespace v1 = velo::rpc::v1;

/// Whatever a message holds can be printed, and read again as the same.
void checkPrinted( const google::protobuf::Message & message ) {
   const std::string json = VeloAgent::lineOf( VeloCtl::jsonOf( message ) );
   const std::unique_ptr< google::protobuf::Message > again( message.New() );
   VeloCtl::readJson( json, *again, "file" );
   require( again->SerializeAsString() == message.SerializeAsString(),
            "a message comes back from its JSON" );
}

template< class Message >
void fromJson( std::string_view text ) {
   Message message;
   try {
      VeloCtl::readJson( text, message, "file" );
   } catch ( const VeloCtl::WrongUse & error ) {
      const std::string_view what = error.what();
      require( what.find( '\n' ) == what.npos, "a refusal is one line" );
      return;
   }
   checkPrinted( message );
}

/// Only what the agent takes for an address is written in another way.
void address( std::string_view text ) {
   const std::string normal = VeloCtl::normalAddress( std::string( text ) );
   if ( normal == text ) { return; }
   require( Ipnet::IpAddr( text ).toString() == normal, "both name one address" );
}

void prefix( std::string_view text ) {
   const std::string normal = VeloCtl::normalPrefix( std::string( text ) );
   if ( normal == text ) { return; }
   require( Ipnet::IpPrefix( std::string_view( normal ) ).toString() == normal,
            "a prefix that is written in another way is one" );
   Ipnet::IpAddr( text.substr( 0, text.find( '/' ) ) ); // So was its address; throws if not.
}

void parse( std::string_view input ) {
   using Check = void ( * )( std::string_view );
   static const std::map< std::string_view, Check > checks = {
      { "FibOverridesSet", fromJson< v1::FibOverridesSetRequest > },
      { "FibOverridesDelete", fromJson< v1::FibOverridesDeleteRequest > },
      { "BgpLinkWeightsSet", fromJson< v1::BgpLinkWeightsSetRequest > },
      { "PublishPbrCounters", fromJson< v1::PublishPbrCountersRequest > },
      { "PublishMplsRoutes", fromJson< v1::PublishMplsRoutesRequest > },
      { "PublishNexthopGroups", fromJson< v1::PublishNexthopGroupsRequest > },
      { "PbrCountersWatch", fromJson< v1::PbrCountersWatchResponse > },
      { "GetStatus", fromJson< v1::GetStatusResponse > },
      { "address", address },
      { "prefix", prefix } };
   const auto [kind, text] = firstLine( input );
   if ( const auto found = checks.find( kind ); found != checks.end() ) { found->second( text ); }
}

const Target target( "MessageJson", parse );

} // namespace
} // namespace Fuzz::MessageJson
