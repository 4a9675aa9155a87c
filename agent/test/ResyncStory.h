/// A client's resync, told step by step.
///
///    ResyncStory story( *stub, &Stub::Resync );
///    story.send( request );           // returns when the stream has taken it
///    story.end();                     // status, response

#pragma once

#include <chrono>
#include <grpcpp/client_context.h>
#include <grpcpp/support/sync_stream.h>
#include <memory>

namespace VeloAgent {

template< typename Stub, typename Request, typename Response >
class ResyncStory {
 public:
   using Writer = grpc::ClientWriter< Request >;
   using Method = std::unique_ptr< Writer > ( Stub::* )( grpc::ClientContext *, Response * );

   ResyncStory( Stub & stub, Method method ) {
      context_.set_deadline( std::chrono::system_clock::now() + std::chrono::seconds( 60 ) );
      writer_ = ( stub.*method )( &context_, &response );
   }
   ~ResyncStory() {
      if ( writer_ ) {
         cancel();
         finish();
      }
   }
   ResyncStory( const ResyncStory & ) = delete;
   ResyncStory & operator=( const ResyncStory & ) = delete;

   /// False when the stream is over already.
   bool send( const Request & request ) { return writer_->Write( request ); }

   /// The client has sent all; how it went.
   grpc::Status end() {
      writer_->WritesDone();
      return finish();
   }
   /// The server has ended it, or the client has broken it.
   grpc::Status finish() {
      const grpc::Status status = writer_->Finish();
      writer_.reset();
      return status;
   }
   void cancel() { context_.TryCancel(); }

   Response response;

 private:
   grpc::ClientContext context_;
   std::unique_ptr< Writer > writer_;
};

} // namespace VeloAgent
