#include "agent/rpc/MplsRouteProgrammingService.h"

#include "agent/rpc/ServerStream.h"
#include "agent/stream/MplsStreams.h"

#include <velo/rpc/v1/mpls_route_programming.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;
using RoutesStream = ServerStream< v1::MplsRouteProgrammingWatchResponse >;

class MplsRouteProgrammingService final : public v1::MplsRouteProgramming::CallbackService {
 public:
   MplsRouteProgrammingService( EventLoop & loop, MplsStreams & streams )
      : loop_( loop ), streams_( streams ) {}

 private:
   grpc::ServerWriteReactor< v1::MplsRouteProgrammingWatchResponse > *
   Watch( grpc::CallbackServerContext * context,
          const v1::MplsRouteProgrammingWatchRequest * ) override {
      return RoutesStream::open( loop_, *context,
                                 [this]( RoutesStream & stream ) { streams_.open( stream ); } );
   }

   EventLoop & loop_;
   MplsStreams & streams_;
};

} // namespace

std::unique_ptr< grpc::Service > makeMplsRouteProgrammingService( EventLoop & loop,
                                                                  MplsStreams & streams ) {
   return std::make_unique< MplsRouteProgrammingService >( loop, streams );
}

} // namespace VeloAgent
