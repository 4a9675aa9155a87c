#include "agent/veloctl/test/FakeAgent.h"

#include <cstdlib>
#include <filesystem>
#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>
#include <map>
#include <mutex>
#include <thread>

namespace VeloCtl {

namespace {

using google::protobuf::Message;
using Stream = grpc::GenericServerAsyncReaderWriter;

std::string newDirectory() {
   std::string path = ( std::filesystem::temp_directory_path() / "veloctl-XXXXXX" ).string();
   if ( !::mkdtemp( path.data() ) ) { throw std::runtime_error( "no directory for a socket" ); }
   return path;
}

class Served final : public ServedCall {
 public:
   Served( grpc::GenericServerContext & context, Stream & stream, grpc::CompletionQueue & queue )
      : context_( context ), stream_( stream ), queue_( queue ) {}

   bool receive( Message & into ) override {
      grpc::ByteBuffer bytes;
      stream_.Read( &bytes, this );
      return done() && grpc::SerializationTraits< Message >::Deserialize( &bytes, &into ).ok();
   }

   bool send( const Message & message ) override {
      grpc::ByteBuffer bytes;
      bool own = false;
      grpc::GenericSerialize< grpc::ProtoBufferWriter, Message >( message, &bytes, &own );
      stream_.Write( bytes, this );
      return done();
   }

   void awaitCancellation() override {
      while ( !over_ ) { takeOne(); }
   }

   void finish( const grpc::Status & status ) {
      stream_.Finish( status, this );
      done();
      awaitCancellation();
   }

 private:
   /// Whether the operation that was begun went well.
   bool done() {
      while ( takeOne() != this ) {}
      return ok_;
   }

   void * takeOne() {
      void * tag = nullptr;
      queue_.Next( &tag, &ok_ );
      if ( tag == &context_ ) { over_ = true; }
      return tag;
   }

   grpc::GenericServerContext & context_;
   Stream & stream_;
   grpc::CompletionQueue & queue_;
   bool ok_ = false;
   bool over_ = false;
};

} // namespace

struct FakeAgent::Server {
   Server() : directory( newDirectory() ), address( "unix:" + directory + "/agent.sock" ) {
      grpc::ServerBuilder builder;
      builder.AddListeningPort( address, grpc::InsecureServerCredentials() );
      builder.RegisterAsyncGenericService( &service );
      queue = builder.AddCompletionQueue();
      server = builder.BuildAndStart();
      if ( !server ) { throw std::runtime_error( "the fake agent cannot listen" ); }
      thread = std::thread( [this] { run(); } );
   }

   ~Server() {
      close();
      queue->Shutdown();
      void * tag = nullptr;
      bool ok = false;
      while ( queue->Next( &tag, &ok ) ) {}
      std::filesystem::remove_all( directory );
   }

   void close() {
      if ( !thread.joinable() ) { return; }
      {
         const std::scoped_lock lock( mutex );
         closing = true;
      }
      server->Shutdown( std::chrono::system_clock::now() );
      thread.join();
   }

   void run() {
      while ( serveOne() ) {}
   }

   bool serveOne() {
      grpc::GenericServerContext context;
      Stream stream( &context );
      context.AsyncNotifyWhenDone( &context );
      {
         const std::scoped_lock lock( mutex );
         if ( closing ) { return false; }
         service.RequestCall( &context, &stream, queue.get(), queue.get(), this );
      }
      void * tag = nullptr;
      bool ok = false;
      if ( !queue->Next( &tag, &ok ) || !ok ) { return false; }
      Served call( context, stream, *queue );
      call.finish( statusOf( context.method(), call ) );
      return true;
   }

   void serve( const std::string & method, Handler handler ) {
      const std::scoped_lock lock( mutex );
      handlers[method] = std::move( handler );
   }

   /// Null if there is none. It stays where it is, and keeps its state from call to call.
   Handler * handlerOf( const std::string & method ) {
      const std::scoped_lock lock( mutex );
      const auto handler = handlers.find( method );
      return handler == handlers.end() ? nullptr : &handler->second;
   }

   grpc::Status statusOf( const std::string & method, ServedCall & call ) {
      Handler * const handler = handlerOf( method );
      if ( !handler ) { return { grpc::StatusCode::UNIMPLEMENTED, "no handler for " + method }; }
      const std::scoped_lock lock( serving );
      try {
         ( *handler )( call );
         return grpc::Status::OK;
      } catch ( const Refusal & refusal ) {
         return { static_cast< grpc::StatusCode >( refusal.code() ), refusal.what() };
      }
   }

   const std::string directory;
   const std::string address;
   grpc::AsyncGenericService service;
   std::unique_ptr< grpc::ServerCompletionQueue > queue;
   std::unique_ptr< grpc::Server > server;
   std::mutex mutex; ///< Guards the two that follow.
   std::map< std::string, Handler > handlers;
   bool closing = false; ///< Nothing more may be requested.
   std::mutex serving;   ///< Held while a handler runs.
   std::thread thread;
};

FakeAgent::FakeAgent() : server_( std::make_unique< Server >() ) {}

FakeAgent::~FakeAgent() = default;

void FakeAgent::serve( const std::string & method, Handler handler ) {
   server_->serve( "/velo.rpc.v1." + method, std::move( handler ) );
}

void FakeAgent::synchronize() { const std::scoped_lock lock( server_->serving ); }

void FakeAgent::close() { server_->close(); }

const std::string & FakeAgent::address() const { return server_->address; }

} // namespace VeloCtl
