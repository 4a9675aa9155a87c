/// The south side, as RPC clients publish it: velo.rpc.v1.SwitchState.
///
/// Whatever a request alone can be refused for is found on gRPC's thread; the loop only writes.

#pragma once

#include <memory>

namespace grpc {
class Service;
}

namespace VeloAgent {

class EventLoop;
class Recorder;
class TreeWriter;

/// `loop`, `writer` and `recorder` outlive the server; the last may be null. Of the writer every
/// request is one portion.
std::unique_ptr< grpc::Service > makeSwitchStateService( EventLoop & loop, TreeWriter & writer,
                                                         Recorder * recorder );

} // namespace VeloAgent
