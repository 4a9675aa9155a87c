#include "agent/rpc/RpcServer.h"

#include "agent/rpc/ServerCredentials.h"

#include <algorithm>
#include <fmt/format.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <grpcpp/security/server_credentials.h>
#include <stdexcept>
#include <sys/resource.h>
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
   // A client without a call may not be looking, and then would not answer although it is there.
   argument( GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 0 );
   // Clients may ask for a sign of life too; more often than this is taken for an attack.
   argument( GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 5'000 );
}

/// As many as the connections need and the process may have. Where that is too few, the gate lets
/// in only so many.
void descriptorsSufficeFor( std::size_t connections ) {
   constexpr rlim_t others = 256;
   rlimit limit = {};
   if ( ::getrlimit( RLIMIT_NOFILE, &limit ) != 0 ) { return; }
   const rlim_t wanted = std::min( limit.rlim_max, 2 * rlim_t{ connections } + others );
   if ( limit.rlim_cur >= wanted ) { return; }
   limit.rlim_cur = wanted;
   ::setrlimit( RLIMIT_NOFILE, &limit );
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

   descriptorsSufficeFor( options.limits.connections );
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
