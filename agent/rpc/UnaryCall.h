/// A call with one request and one answer, served on the event loop.
///
///    gRPC's thread                          event loop
///    Service::Method ──── post ──────────►  handler( request, response )
///          returns at once                  Finish( how it went )
///
/// Thread     any; `handler` is called on the loop, with the SDK lock held
///
/// What a request alone can be refused for is found before the loop is asked: checkedCall().

#pragma once

#include "agent/EventLoop.h"
#include "agent/rpc/CallStatus.h"

#include <grpcpp/server_context.h>
#include <grpcpp/support/server_callback.h>
#include <optional>
#include <type_traits>
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

/// The same for a handler that answers when all is done, maybe in a later turn of the loop:
/// `handler( answer )` sees to it that `answer()` is called there once. It may throw as long as it
/// has not done so.
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

/// `serve( checked )` with what `check()` returns, which is called now. What that throws is the
/// answer.
template< typename Check, typename Serve >
grpc::ServerUnaryReactor * checkedCall( grpc::CallbackServerContext & context, const Check & check,
                                        const Serve & serve ) {
   std::optional< std::invoke_result_t< Check > > checked;
   const grpc::Status status = statusOf( [&] { checked.emplace( check() ); } );
   if ( status.ok() ) { return serve( std::move( *checked ) ); }
   grpc::ServerUnaryReactor * const reactor = context.DefaultReactor();
   reactor->Finish( status );
   return reactor;
}

/// The same, served by `handler( checked )` on the loop.
template< typename Check, typename Handler >
grpc::ServerUnaryReactor * checkedCall( EventLoop & loop, grpc::CallbackServerContext & context,
                                        const Check & check, Handler handler ) {
   return checkedCall( context, check, [&]( auto checked ) {
      return unaryCall( loop, context,
                        [checked = std::move( checked ), handler = std::move( handler )]() mutable {
                           handler( checked );
                        } );
   } );
}

} // namespace VeloAgent
