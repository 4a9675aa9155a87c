#include "agent/rpc/RpcServices.h"

#include "agent/Managers.h"
#include "agent/rpc/BgpLinkWeightsService.h"
#include "agent/rpc/FibOverridesService.h"
#include "agent/rpc/SwitchStateService.h"

#include <grpcpp/impl/codegen/service_type.h>

namespace VeloAgent {

RpcServices::RpcServices( const Parts & parts ) {
   services_.push_back( makeBgpLinkWeightsService( parts.loop, parts.managers.linkWeights() ) );
   services_.push_back( makeFibOverridesService( parts.loop, parts.managers.fibOverrides() ) );
   services_.push_back( makeSwitchStateService( parts.loop, parts.writer ) );
}

RpcServices::~RpcServices() = default;

std::vector< grpc::Service * > RpcServices::all() const {
   std::vector< grpc::Service * > all;
   for ( const auto & service : services_ ) { all.push_back( service.get() ); }
   return all;
}

} // namespace VeloAgent
