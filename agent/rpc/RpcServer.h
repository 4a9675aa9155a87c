/// The agent's RPC server: where it listens, its services, health and reflection.
///
///    made ──► listening, NOT_SERVING ──servingIs( true )──► SERVING ──shutdown──► gone
///
/// Owner      the agent
/// Thread     event loop, except where said otherwise. gRPC's own threads call the services

#pragma once

#include "agent/rpc/ConnectionGate.h"
#include "agent/rpc/ListeningSockets.h"
#include "agent/rpc/RpcServerOptions.h"

#include <chrono>
#include <functional>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>
#include <memory>
#include <thread>
#include <vector>

namespace VeloAgent {

class RpcServer {
 public:
   /// Listens where `options` say. The services outlive this. Throws std::runtime_error with a text
   /// that says what would be right.
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

   /// Hangs up on clients after a shutdown has begun: those that are connected without a call need
   /// not notice that it has. Calls still in progress end.
   void hangUp() { gate_->hangUp(); }

   /// The TCP port that it listens at; 0: none.
   std::uint16_t port() const { return port_; }

   /// Who comes in; for people who look.
   const ConnectionGate & connections() const { return *gate_; }

 private:
   using Acceptor = grpc::experimental::ExternalConnectionAcceptor;

   std::unique_ptr< ListeningSockets > sockets_; ///< Null after the shutdown.
   std::uint16_t port_;
   std::unique_ptr< Acceptor > acceptor_;
   std::unique_ptr< grpc::Server > server_;
   std::unique_ptr< ConnectionGate > gate_;
   std::thread shutdown_;
};

/// The server that `options` ask for; null if they ask for none. An address that somebody chose has
/// to work, or else std::runtime_error; where the default one does not, `noted` is told why nobody
/// is served.
std::unique_ptr< RpcServer >
rpcServerFor( const RpcServerOptions & options, const std::vector< grpc::Service * > & services,
              const std::function< void( const std::string & ) > & noted );

} // namespace VeloAgent
