/// A call with one request and one answer, served on the event loop.
///
///    gRPC's thread                          event loop
///    Service::Method ──── post ──────────►  handler( request, response )
///          returns at once                  Finish( how it went )
///
/// Thread     any; `handler` is called on the loop, with the SDK lock held

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

} // namespace VeloAgent
