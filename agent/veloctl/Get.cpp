#include "agent/veloctl/Get.h"

#include "agent/TextLineFormat.h"
#include "agent/veloctl/Client.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Session.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

#include <memory>
#include <optional>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

struct Wanted {
   std::string policy;
   std::string className;
   std::optional< std::uint64_t > shortKey;
};

PbrCountersGetRequest requestFor( const Wanted & wanted ) {
   PbrCountersGetRequest request;
   const bool named = !wanted.policy.empty() && !wanted.className.empty();
   const bool anyName = !wanted.policy.empty() || !wanted.className.empty();
   if ( wanted.shortKey ? anyName : !named ) {
      throw WrongUse( "get takes POLICY and CLASS, or else --short-key N" );
   }
   if ( wanted.shortKey ) {
      request.set_short_key( *wanted.shortKey );
   } else {
      request.mutable_long_key()->set_policy( wanted.policy );
      request.mutable_long_key()->set_class_name( wanted.className );
   }
   return request;
}

void get( Session & session, const Wanted & wanted ) {
   const PbrCountersGetRequest request = requestFor( wanted );
   const auto response = session.agent().call< PbrCountersGetResponse >( request );
   const PbrCountersRecord & record = response.record();
   if ( session.json() ) { return session.jsonLine( record ); }
   VeloAgent::DeliveredRecord its = { .shortKey = record.short_key(),
                                      .policy = record.long_key().policy(),
                                      .className = record.long_key().class_name(),
                                      .aclRule = record.long_key().acl_rule(),
                                      .counters = {},
                                      .deleted = record.deleted() };
   if ( record.has_counters() ) {
      its.counters = { record.counters().packets(), record.counters().bytes() };
   }
   session.line( VeloAgent::TextLineFormat().record( its ) );
}

} // namespace

void addGet( Commands & commands ) {
   const auto wanted = std::make_shared< Wanted >();
   CLI::App & command = commands.add( "get", "The counters of one class as they are now",
                                      [wanted]( Session & session ) { get( session, *wanted ); } );
   command.add_option( "POLICY", wanted->policy, "The policy map" )->type_name( "" );
   command.add_option( "CLASS", wanted->className, "The class in it" )->type_name( "" );
   addNumber( command, "--short-key", "The class that has this short key", 1, UINT64_MAX,
              [wanted]( std::uint64_t n ) { wanted->shortKey = n; } );
}

} // namespace VeloCtl
