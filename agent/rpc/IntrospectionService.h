/// What goes on inside the agent: velo.rpc.v1.Introspection.

#pragma once

#include <memory>

namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;
class Inspection;

/// `loop` and `inspection` outlive the server.
std::unique_ptr< grpc::Service > makeIntrospectionService( EventLoop & loop,
                                                           const Inspection & inspection );

} // namespace VeloAgent
