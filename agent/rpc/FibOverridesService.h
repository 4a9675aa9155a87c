/// Overrides of the vias that the FIB uses: velo.rpc.v1.FibOverrides.

#pragma once

#include <memory>

namespace VeloSdkRpc {
class fib_override_mgr;
}
namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;

/// `loop` and `manager`, which is mounted before the first call, outlive the server.
std::unique_ptr< grpc::Service > makeFibOverridesService( EventLoop & loop,
                                                          VeloSdkRpc::fib_override_mgr & manager );

} // namespace VeloAgent
