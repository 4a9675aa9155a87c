/// An agent without a source, whose clients are real ones: they call it over a Unix socket in a
/// directory of its own.
///
///    test's thread                      loop's thread
///    stub.Publish...( ... ) ─ socket ─► the agent's parts, put together as the agent does it
///    onTheLoop( work ) ───────────────► work(), and its result back
///
/// Invariant  entities live and die on the loop's thread

#pragma once

#include "agent/EventLoop.h"
#include "agent/Inspection.h"
#include "agent/Managers.h"
#include "agent/ProcessScheduler.h"
#include "agent/TreeWriter.h"
#include "agent/rpc/RpcServer.h"
#include "agent/rpc/RpcServices.h"
#include "agent/stream/MplsStreams.h"
#include "agent/stream/PbrStreams.h"
#include "agent/test/TemporaryDirectory.h"

#include <chrono>
#include <future>
#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace VeloAgent {

class RpcFixture : public testing::Test {
 protected:
   /// Only to be touched on the loop.
   struct Parts {
      Parts( const RpcServerOptions & options, const StreamOptions & streamOptions )
         : resyncPatience( streamOptions.stallTime ),
           pbrStreams( *pbrFanout, clients, streamOptions, Oru::steadyClock() ),
           mplsStreams( *scheduler, managers.mplsRoutes(), managers.nexthopGroups(), clients,
                        streamOptions, Oru::steadyClock() ),
           server( options, services.all() ) {
         managers.mount();
         mplsStreams.start();
      }

      const std::chrono::milliseconds resyncPatience;
      ProcessScheduler scheduler;
      EventLoop loop{ *scheduler };
      const Lumo::Ptr< TreeWriter::Root > root = Lumo::makeNode< TreeWriter::Root >();
      Managers managers{ root };
      std::vector< std::string > failures; ///< Of the tree's writer.
      const Lumo::Ptr< TreeWriter > writer = Lumo::makeNode< TreeWriter >(
         *scheduler, root, [this]( const std::string & what ) { failures.push_back( what ); } );
      WatchingClients clients;
      Inspection inspection{ managers, **scheduler, clients };
      const Lumo::Ptr< PbrFanout > pbrFanout =
         Lumo::makeNode< PbrFanout >( *scheduler, managers.pbrCounters() );
      PbrStreams pbrStreams;
      MplsStreams mplsStreams;
      const RpcServices services{ { .loop = loop,
                                    .managers = managers,
                                    .writer = *writer,
                                    .pbrFanout = *pbrFanout,
                                    .pbrStreams = pbrStreams,
                                    .mplsStreams = mplsStreams,
                                    .inspection = inspection,
                                    .resyncPatience = resyncPatience } };
      RpcServer server;
   };

   explicit RpcFixture( const StreamOptions & streamOptions = {} )
      : streamOptions_( streamOptions ) {
      std::promise< Parts * > ready;
      std::future< Parts * > parts = ready.get_future();
      thread_ = std::thread( [this, ready = std::move( ready )]() mutable { live( ready ); } );
      try {
         parts_ = parts.get();
      } catch ( ... ) {
         thread_.join();
         throw;
      }
   }

   /// Calls still in progress are cancelled.
   ~RpcFixture() override {
      onTheLoop( []( Parts & parts ) {
         // What the calls have left to say to the loop comes before the stop.
         parts.server.shutdown( std::chrono::system_clock::now(),
                                [&parts] { parts.loop.post( [&parts] { parts.loop.stop(); } ); } );
      } );
      thread_.join();
   }

   /// `work( parts )`, done on the loop; returns what it returns.
   template< typename Work >
   std::invoke_result_t< Work, Parts & > onTheLoop( Work work ) {
      using Task = std::packaged_task< std::invoke_result_t< Work, Parts & >() >;
      const auto task = std::make_shared< Task >( [&] { return work( *parts_ ); } );
      parts_->loop.post( [task] { ( *task )(); } );
      return task->get_future().get();
   }

   /// A client's connection, another at each call.
   std::shared_ptr< grpc::Channel > connection() const {
      grpc::ChannelArguments arguments;
      arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
      return grpc::CreateCustomChannel( "unix:" + socket(), grpc::InsecureChannelCredentials(),
                                        arguments );
   }

   std::string socket() const { return directory / "agent.sock"; }

   /// One call with one answer: `call( stub, &Stub::Method, request, response )`. A call that is
   /// not answered in time fails the test instead of standing still.
   template< typename Stub, typename Request, typename Response >
   static grpc::Status call( Stub & stub,
                             grpc::Status ( Stub::*method )( grpc::ClientContext *, const Request &,
                                                             Response * ),
                             const Request & request, Response & response ) {
      grpc::ClientContext context;
      context.set_deadline( deadline() );
      return ( stub.*method )( &context, request, &response );
   }

   /// For what is awaited: far beyond what a slow machine takes.
   static std::chrono::system_clock::time_point deadline() {
      return std::chrono::system_clock::now() + std::chrono::seconds( 60 );
   }

   const TemporaryDirectory directory;

 private:
   /// The loop's thread. Under the SDK lock it is the one that may touch entities.
   void live( std::promise< Parts * > & ready ) {
      std::optional< Parts > parts;
      try {
         const velo::sdk_scoped_lock lock;
         parts.emplace( RpcServerOptions{ .listen = "unix:" + socket() }, streamOptions_ );
      } catch ( ... ) { return ready.set_exception( std::current_exception() ); }
      ready.set_value( &*parts );
      parts->loop.run();
      const velo::sdk_scoped_lock lock;
      parts.reset();
   }

   const StreamOptions streamOptions_;
   std::thread thread_;
   Parts * parts_ = nullptr;
};

} // namespace VeloAgent
