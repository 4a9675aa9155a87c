#include "agent/rpc/RpcServices.h"

#include "agent/Managers.h"
#include "agent/rpc/BgpLinkWeightsService.h"
#include "agent/rpc/FibOverridesService.h"
#include "agent/rpc/IntrospectionService.h"
#include "agent/rpc/MplsRouteProgrammingService.h"
#include "agent/rpc/PbrCountersService.h"
#include "agent/rpc/SwitchStateService.h"

#include <grpc/grpc.h>
#include <grpcpp/impl/codegen/service_type.h>

namespace VeloAgent {

namespace {

/// gRPC stays up until the process ends: who lets go of it last waits for its threads, and one of
/// them may be asleep for ten seconds.
void keepGrpcUp() { [[maybe_unused]] static const bool once = ( grpc_init(), true ); }

} // namespace

RpcServices::RpcServices( const Parts & parts ) {
   keepGrpcUp();
   services_.push_back(
      makeBgpLinkWeightsService( parts.loop, parts.managers.linkWeights(), parts.resyncPatience ) );
   services_.push_back(
      makeFibOverridesService( parts.loop, parts.managers.fibOverrides(), parts.resyncPatience ) );
   services_.push_back( makeIntrospectionService( parts.loop, parts.inspection ) );
   services_.push_back( makeMplsRouteProgrammingService( parts.loop, parts.mplsStreams ) );
   services_.push_back( makePbrCountersService( parts.loop, parts.managers.pbrCounters(),
                                                parts.pbrFanout, parts.pbrStreams ) );
   services_.push_back(
      makeSwitchStateService( parts.loop, parts.writer, parts.managers, parts.recorder ) );
}

RpcServices::~RpcServices() = default;

std::vector< grpc::Service * > RpcServices::all() const {
   std::vector< grpc::Service * > all;
   all.reserve( services_.size() );
   for ( const auto & service : services_ ) { all.push_back( service.get() ); }
   return all;
}

} // namespace VeloAgent
