/// A call with one request and one answer, served on the event loop.
///
///    gRPC's thread                          event loop
///    Service::Method ──── post ──────────►  handler( request, response )
///          returns at once                  Finish( how it went )
///
/// Thread     any; `handler` is called on the loop, with the SDK lock held
///
/// What can be refused by the request alone should be, before the loop is asked: refusedCall().

#pragma once

#include "agent/EventLoop.h"
#include "agent/rpc/CallStatus.h"

#include <grpcpp/server_context.h>
#include <grpcpp/support/server_callback.h>
#include <utility>

namespace VeloAgent {

/// What a service's method returns. `handler()` fills the response; what it throws becomes the
/// status. The loop must run until the server has shut down: every call is answered.
template< typename Handler >
grpc::ServerUnaryReactor * unaryCall( EventLoop & loop, grpc::CallbackServerContext & context,
                                      Handler handler ) {
   grpc::ServerUnaryReactor * const reactor = context.DefaultReactor();
   loop.post( [reactor, handler = std::move( handler )]() mutable {
      reactor->Finish( statusOf( handler ) );
   } );
   return reactor;
}

/// The same for what takes more than one turn of the loop: `handler( answer )` sees to it that
/// `answer()` is called once, on the loop, when all is done. It may throw as long as it has not
/// done so.
template< typename Handler >
grpc::ServerUnaryReactor * longCall( EventLoop & loop, grpc::CallbackServerContext & context,
                                     Handler handler ) {
   grpc::ServerUnaryReactor * const reactor = context.DefaultReactor();
   loop.post( [reactor, handler = std::move( handler )]() mutable {
      const auto answer = [reactor] { reactor->Finish( grpc::Status::OK ); };
      const grpc::Status status = statusOf( [&] { handler( answer ); } );
      if ( !status.ok() ) { reactor->Finish( status ); }
   } );
   return reactor;
}

/// A call that is answered at once, without the loop.
inline grpc::ServerUnaryReactor * refusedCall( grpc::CallbackServerContext & context,
                                               const grpc::Status & status ) {
   grpc::ServerUnaryReactor * const reactor = context.DefaultReactor();
   reactor->Finish( status );
   return reactor;
}

} // namespace VeloAgent
