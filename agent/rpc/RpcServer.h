/// The agent's RPC server: where it listens, its services, health and reflection.
///
///    made ──► listening, NOT_SERVING ──servingIs( true )──► SERVING ──shutdown──► gone
///
/// Owner      the agent
/// Thread     event loop, except where said otherwise. gRPC's own threads call the services

#pragma once

#include "agent/rpc/RpcServerOptions.h"

#include <chrono>
#include <functional>
#include <grpcpp/server.h>
#include <memory>
#include <thread>
#include <vector>

namespace VeloAgent {

class RpcServer {
 public:
   /// Listens. The services outlive this. Throws std::runtime_error with a text that says what
   /// would be right.
   RpcServer( const RpcServerOptions & options, const std::vector< grpc::Service * > & services );

   /// After a shutdown, or when no call can be in progress any more.
   ~RpcServer();
   RpcServer( const RpcServer & ) = delete;
   RpcServer & operator=( const RpcServer & ) = delete;

   /// What the health service answers.
   void servingIs( bool serving );

   /// Takes no further calls, gives those in progress until `deadline` and cancels the rest, then
   /// calls `done` on a thread of its own. The loop must go on running until then. Once only.
   void shutdown( std::chrono::system_clock::time_point deadline, std::function< void() > done );

 private:
   std::unique_ptr< grpc::Server > server_;
   std::thread shutdown_;
};

} // namespace VeloAgent
