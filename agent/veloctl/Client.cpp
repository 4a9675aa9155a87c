#include "agent/veloctl/Client.h"

#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Files.h"

#include <fmt/format.h>
#include <grpcpp/create_channel.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/security/credentials.h>

namespace VeloCtl {

namespace {

using google::protobuf::Message;
using google::protobuf::MessageLite;
using Stub = grpc::TemplatedGenericStub< MessageLite, MessageLite >;

std::shared_ptr< grpc::ChannelCredentials > credentialsFor( const AgentAddress & address ) {
   if ( address.ca.empty() ) { return grpc::InsecureChannelCredentials(); }
   grpc::SslCredentialsOptions options;
   options.pem_root_certs = contentOf( address.ca );
   if ( !address.key.empty() ) {
      options.pem_cert_chain = contentOf( address.certificate );
      options.pem_private_key = contentOf( address.key );
   }
   return grpc::SslCredentials( options );
}

std::shared_ptr< grpc::Channel > channelTo( const AgentAddress & address ) {
   grpc::ChannelArguments arguments;
   // We trust the agent with our memory.
   arguments.SetMaxReceiveMessageSize( -1 );
   // Whoever goes on trying keeps his own pace.
   arguments.SetInt( GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 50 );
   arguments.SetInt( GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 1000 );
   arguments.SetInt( GRPC_ARG_ENABLE_HTTP_PROXY, 0 );
   return grpc::CreateCustomChannel( address.address, credentialsFor( address ), arguments );
}

/// "/velo.rpc.v1.Introspection/GetStatus", from the one method with these messages.
std::string pathOf( const Message & request, const Message & response ) {
   const auto * const file = request.GetDescriptor()->file();
   for ( int s = 0; s < file->service_count(); ++s ) {
      const auto * const service = file->service( s );
      for ( int m = 0; m < service->method_count(); ++m ) {
         const auto * const method = service->method( m );
         if ( method->input_type() == request.GetDescriptor() &&
              method->output_type() == response.GetDescriptor() ) {
            return '/' + service->full_name() + '/' + method->name();
         }
      }
   }
   throw std::logic_error( "no method takes a " + request.GetTypeName() + " and answers with a " +
                           response.GetTypeName() );
}

std::string nameOf( grpc::StatusCode code ) {
   switch ( code ) {
   case grpc::StatusCode::CANCELLED:
      return "CANCELLED";
   case grpc::StatusCode::INVALID_ARGUMENT:
      return "INVALID_ARGUMENT";
   case grpc::StatusCode::DEADLINE_EXCEEDED:
      return "DEADLINE_EXCEEDED";
   case grpc::StatusCode::NOT_FOUND:
      return "NOT_FOUND";
   case grpc::StatusCode::PERMISSION_DENIED:
      return "PERMISSION_DENIED";
   case grpc::StatusCode::RESOURCE_EXHAUSTED:
      return "RESOURCE_EXHAUSTED";
   case grpc::StatusCode::FAILED_PRECONDITION:
      return "FAILED_PRECONDITION";
   case grpc::StatusCode::ABORTED:
      return "ABORTED";
   case grpc::StatusCode::UNIMPLEMENTED:
      return "UNIMPLEMENTED";
   case grpc::StatusCode::INTERNAL:
      return "INTERNAL";
   case grpc::StatusCode::UNAVAILABLE:
      return "UNAVAILABLE";
   case grpc::StatusCode::UNAUTHENTICATED:
      return "UNAUTHENTICATED";
   default:
      return fmt::format( "status {}", static_cast< int >( code ) );
   }
}

/// Whether it may go better next time.
bool passes( grpc::StatusCode code ) {
   return code == grpc::StatusCode::RESOURCE_EXHAUSTED || code == grpc::StatusCode::CANCELLED ||
          code == grpc::StatusCode::UNKNOWN;
}

} // namespace

struct Client::Connection {
   explicit Connection( const AgentAddress & where )
      : address( where ), channel( channelTo( where ) ), stub( channel ) {}

   /// The failure that `status` stands for.
   CallFailed failure( const grpc::Status & status ) const {
      const grpc::StatusCode code = status.error_code();
      const std::string text =
         status.error_message().empty() ? "no reason was given" : status.error_message();
      if ( code == grpc::StatusCode::UNAVAILABLE ) {
         return { ExitCode::unavailable,
                  fmt::format( "the agent at {} is not available: {}", address.address, text ),
                  true };
      }
      return { ExitCode::refused, fmt::format( "{} ({})", text, nameOf( code ) ), passes( code ) };
   }

   const AgentAddress address;
   const std::shared_ptr< grpc::Channel > channel;
   Stub stub;
};

Client::Client( const AgentAddress & address )
   : connection_( std::make_unique< Connection >( checked( address ) ) ) {}

Client::~Client() = default;

void Client::callInto( const Message & request, Message & response ) {
   Call call( *this, request, response );
   call.send( request );
   call.endSending();
   if ( call.next() != Call::Next::message ) {
      throw CallFailed( ExitCode::refused, "the agent answered without an answer", false );
   }
   call.next(); // How it ended counts as well.
}

/// The operations of gRPC's asynchronous interface, one after the other. At most one of each kind
/// is ever in progress; its tag is the place of its flag.
///
///    start ── write* ── writesDone            finish
///                read ── read ── ... ── read fails ──┘
struct Call::Operations {
   Operations( Client & client, const Message & request, Message & into )
      : connection( *client.connection_ ), response( into ) {
      rpc = connection.stub.PrepareCall( &context, pathOf( request, into ), &queue );
      rpc->StartCall( begin( starting ) );
      awaitWithin( starting );
   }

   ~Operations() {
      context.TryCancel();
      queue.Shutdown();
      void * tag = nullptr;
      bool ok = false;
      while ( queue.Next( &tag, &ok ) ) {}
   }

   struct Operation {
      bool inProgress = false;
      bool ok = false;
   };

   void * begin( Operation & operation ) {
      operation.inProgress = true;
      return &operation;
   }

   /// Whether `operation` has ended by `deadline`.
   bool await( const Operation & operation, Clock::time_point deadline ) {
      while ( operation.inProgress ) {
         void * tag = nullptr;
         bool ok = false;
         if ( queue.AsyncNext( &tag, &ok, deadline ) != grpc::CompletionQueue::GOT_EVENT ) {
            return false;
         }
         auto & ended = *static_cast< Operation * >( tag );
         ended.inProgress = false;
         ended.ok = ok;
      }
      return true;
   }

   void awaitWithin( const Operation & operation ) {
      const auto timeout = connection.address.timeout;
      if ( !await( operation, Clock::now() + timeout ) ) { throw tooLate(); }
   }

   CallFailed tooLate() const {
      return { ExitCode::noAnswer,
               fmt::format( "no answer from {} within {} ms; --timeout MS gives it more",
                            connection.address.address, connection.address.timeout.count() ),
               true };
   }

   void send( const Message & request ) {
      if ( starting.ok ) {
         rpc->Write( request, begin( writing ) );
         awaitWithin( writing );
      }
      if ( !starting.ok || !writing.ok ) { end(); }
   }

   Next next( Clock::time_point deadline ) {
      if ( !reading.inProgress ) { rpc->Read( &response, begin( reading ) ); }
      if ( !await( reading, deadline ) ) { return Next::nothingYet; }
      if ( reading.ok ) { return Next::message; }
      end();
      return Next::end;
   }

   void end() {
      grpc::Status status;
      Operation finishing;
      rpc->Finish( &status, begin( finishing ) );
      // Cannot take long: there is nothing to come any more.
      await( finishing, Clock::time_point::max() );
      if ( !status.ok() ) { throw connection.failure( status ); }
   }

   Client::Connection & connection;
   Message & response;
   grpc::ClientContext context;
   grpc::CompletionQueue queue;
   std::unique_ptr< grpc::ClientAsyncReaderWriter< MessageLite, MessageLite > > rpc;
   Operation starting;
   Operation writing;
   Operation reading;
};

Call::Call( Client & client, const Message & request, Message & response )
   : operations_( std::make_unique< Operations >( client, request, response ) ) {}

Call::~Call() = default;

void Call::send( const Message & request ) { operations_->send( request ); }

void Call::endSending() {
   Operations & call = *operations_;
   call.rpc->WritesDone( call.begin( call.writing ) );
   call.awaitWithin( call.writing );
}

Call::Next Call::next( Clock::time_point deadline ) { return operations_->next( deadline ); }

Call::Next Call::next() {
   const Next what = operations_->next( Clock::now() + operations_->connection.address.timeout );
   if ( what == Next::nothingYet ) { throw operations_->tooLate(); }
   return what;
}

} // namespace VeloCtl
