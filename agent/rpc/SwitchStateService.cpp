#include "agent/rpc/SwitchStateService.h"

#include "agent/TreeWriter.h"
#include "agent/recording/Recorder.h"
#include "agent/rpc/PbrCountersConversion.h"
#include "agent/rpc/UnaryCall.h"

#include <velo/rpc/v1/switch_state.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;

class SwitchStateService final : public v1::SwitchState::CallbackService {
 public:
   SwitchStateService( EventLoop & loop, TreeWriter & writer, Recorder * recorder )
      : loop_( loop ), writer_( writer ), recorder_( recorder ) {}

 private:
   grpc::ServerUnaryReactor * PublishPbrCounters( grpc::CallbackServerContext * context,
                                                  const v1::PublishPbrCountersRequest * request,
                                                  v1::PublishPbrCountersResponse * ) override {
      return checkedCall(
         *context, [&] { return changesFrom( *request ); },
         [&]( CounterChanges changes ) {
            return longCall( loop_, *context,
                             [this, changes = std::move( changes )]( auto answer ) mutable {
                                if ( recorder_ ) { recorder_->published( changes ); }
                                writer_.apply( std::move( changes ), answer );
                             } );
         } );
   }

   EventLoop & loop_;
   TreeWriter & writer_;
   Recorder * const recorder_;
};

} // namespace

std::unique_ptr< grpc::Service > makeSwitchStateService( EventLoop & loop, TreeWriter & writer,
                                                         Recorder * recorder ) {
   return std::make_unique< SwitchStateService >( loop, writer, recorder );
}

} // namespace VeloAgent
