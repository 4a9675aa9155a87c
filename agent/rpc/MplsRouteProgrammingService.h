/// MPLS routes that the hardware forwards by: velo.rpc.v1.MplsRouteProgramming.

#pragma once

#include <memory>

namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;
class MplsStreams;

/// Both outlive the server.
std::unique_ptr< grpc::Service > makeMplsRouteProgrammingService( EventLoop & loop,
                                                                  MplsStreams & streams );

} // namespace VeloAgent
