/// Overrides of the vias that the FIB uses: velo.rpc.v1.FibOverrides.

#pragma once

#include <chrono>
#include <memory>

namespace VeloSdkRpc {
class fib_override_mgr;
}
namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;

/// `loop` and `manager`, which is mounted before the first call, outlive the server. A resync that
/// was silent for `resyncPatience` gives way to another client's.
std::unique_ptr< grpc::Service >
makeFibOverridesService( EventLoop & loop, VeloSdkRpc::fib_override_mgr & manager,
                         std::chrono::milliseconds resyncPatience );

} // namespace VeloAgent
