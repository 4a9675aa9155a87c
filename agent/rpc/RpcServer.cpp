#include "agent/rpc/RpcServer.h"

#include "agent/rpc/ServerCredentials.h"

#include <fmt/format.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/security/server_credentials.h>
#include <stdexcept>
#include <utility>

namespace VeloAgent {

namespace {

ListenAddress addressFrom( const std::string & listen ) {
   if ( listen.empty() ) { return defaultListenAddress(); }
   if ( const auto address = listenAddressFrom( listen ) ) { return *address; }
   throw std::runtime_error(
      fmt::format( "cannot listen at {}: it is not {}", listen, kListenAddressForms ) );
}

void limitsAre( grpc::ServerBuilder & builder, const RpcLimits & limits ) {
   const auto argument = [&]( const char * name, auto value ) {
      builder.AddChannelArgument( name, static_cast< int >( value ) );
   };
   builder.SetMaxReceiveMessageSize( static_cast< int >( limits.messageBytes ) );
   argument( GRPC_ARG_MAX_CONCURRENT_STREAMS, limits.streams );
   argument( GRPC_ARG_KEEPALIVE_TIME_MS, limits.keepaliveTime.count() );
   argument( GRPC_ARG_KEEPALIVE_TIMEOUT_MS, limits.keepaliveTimeout.count() );
   argument( GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1 );
}

} // namespace

RpcServer::RpcServer( const RpcServerOptions & options,
                      const std::vector< grpc::Service * > & services )
   : sockets_( std::make_unique< ListeningSockets >( addressFrom( options.listen ) ) ),
     port_( sockets_->port() ) {
   if ( sockets_->beyondLoopback() && options.tls.certificate.empty() ) {
      throw std::runtime_error( fmt::format(
         "cannot listen at {}: other machines are let in only with TLS; give --tls-cert and "
         "--tls-key, or listen at 127.0.0.1",
         options.listen ) );
   }
   grpc::EnableDefaultHealthCheckService( true );
   grpc::reflection::InitProtoReflectionServerBuilderPlugin();

   grpc::ServerBuilder builder;
   using Builder = grpc::ServerBuilder::experimental_type;
   acceptor_ = builder.experimental().AddExternalConnectionAcceptor(
      Builder::ExternalConnectionType::FROM_FD, serverCredentialsFrom( options.tls ) );
   limitsAre( builder, options.limits );
   for ( grpc::Service * const service : services ) { builder.RegisterService( service ); }
   server_ = builder.BuildAndStart();
   if ( !server_ ) { throw std::runtime_error( "the RPC server could not be started" ); }
   servingIs( false );

   gate_ = std::make_unique< ConnectionGate >( sockets_->sockets(), options.limits.connections,
                                               [this]( int listener, int connection ) {
                                                  Acceptor::NewConnectionParameters newConnection;
                                                  newConnection.listener_fd = listener;
                                                  newConnection.fd = connection;
                                                  acceptor_->HandleNewConnection( &newConnection );
                                               } );
}

RpcServer::~RpcServer() {
   if ( shutdown_.joinable() ) { shutdown_.join(); }
   gate_->close();
}

void RpcServer::servingIs( bool serving ) {
   server_->GetHealthCheckService()->SetServingStatus( serving );
}

void RpcServer::shutdown( std::chrono::system_clock::time_point deadline,
                          std::function< void() > done ) {
   gate_->close();
   sockets_.reset();
   shutdown_ = std::thread( [this, deadline, done = std::move( done )] {
      server_->Shutdown( deadline );
      done();
   } );
}

std::unique_ptr< RpcServer >
rpcServerFor( const RpcServerOptions & options, const std::vector< grpc::Service * > & services,
              const std::function< void( const std::string & ) > & noted ) {
   const bool chosen = !options.listen.empty();
   if ( std::holds_alternative< Nowhere >( addressFrom( options.listen ) ) ) {
      if ( !chosen ) {
         noted( "no clients are served: there is no /run/velo-agent that may be written, and no "
                "XDG_RUNTIME_DIR; --listen unix:PATH would say where" );
      }
      return nullptr;
   }
   try {
      return std::make_unique< RpcServer >( options, services );
   } catch ( const std::runtime_error & error ) {
      if ( chosen ) { throw; }
      noted( std::string( "no clients are served: " ) + error.what() );
      return nullptr;
   }
}

} // namespace VeloAgent
