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
class Managers;
class Recorder;
class TreeWriter;

/// All outlive the server; `recorder` may be null. Counters go through `writer`, every request as
/// one portion; the rest is state of `managers`.
std::unique_ptr< grpc::Service > makeSwitchStateService( EventLoop & loop, TreeWriter & writer,
                                                         Managers & managers, Recorder * recorder );

} // namespace VeloAgent
