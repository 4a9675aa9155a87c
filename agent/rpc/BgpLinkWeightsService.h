/// The BGP link weights of interfaces: velo.rpc.v1.BgpLinkWeights.

#pragma once

#include <chrono>
#include <memory>

namespace VeloSdkRpc {
class bgp_link_weight_mgr;
}
namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;

/// `loop` and `manager`, which is mounted before the first call, outlive the server. A resync that
/// was silent for `resyncPatience` gives way to another client's.
std::unique_ptr< grpc::Service >
makeBgpLinkWeightsService( EventLoop & loop, VeloSdkRpc::bgp_link_weight_mgr & manager,
                           std::chrono::milliseconds resyncPatience );

} // namespace VeloAgent
