/// The service velo.rpc.v1.PbrCounters over the agent's fan-out.
///
/// Owner      the agent
/// Thread     gRPC's; what is asked is answered on the event loop

#pragma once

#include <memory>

namespace grpc {
class Service;
}

namespace VeloSdkRpc {
class PbrPolicyCountersMgr;
} // namespace VeloSdkRpc

namespace VeloAgent {

class EventLoop;
class PbrFanout;
class PbrStreams;

/// All outlive the service.
std::unique_ptr< grpc::Service >
makePbrCountersService( EventLoop & loop, const VeloSdkRpc::PbrPolicyCountersMgr & mgr,
                        const PbrFanout & fanout, PbrStreams & streams );

} // namespace VeloAgent
