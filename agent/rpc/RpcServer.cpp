#include "agent/rpc/RpcServer.h"

#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server_builder.h>
#include <stdexcept>
#include <utility>

namespace VeloAgent {

RpcServer::RpcServer( const RpcServerOptions & options,
                      const std::vector< grpc::Service * > & services ) {
   grpc::EnableDefaultHealthCheckService( true );
   grpc::reflection::InitProtoReflectionServerBuilderPlugin();

   grpc::ServerBuilder builder;
   builder.AddListeningPort( options.listen, grpc::InsecureServerCredentials() );
   for ( grpc::Service * const service : services ) { builder.RegisterService( service ); }
   server_ = builder.BuildAndStart();
   if ( !server_ ) { throw std::runtime_error( "cannot listen at " + options.listen ); }
   servingIs( false );
}

RpcServer::~RpcServer() {
   if ( shutdown_.joinable() ) { shutdown_.join(); }
}

void RpcServer::servingIs( bool serving ) {
   server_->GetHealthCheckService()->SetServingStatus( serving );
}

void RpcServer::shutdown( std::chrono::system_clock::time_point deadline,
                          std::function< void() > done ) {
   shutdown_ = std::thread( [this, deadline, done = std::move( done )] {
      server_->Shutdown( deadline );
      done();
   } );
}

} // namespace VeloAgent
