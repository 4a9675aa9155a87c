#include "agent/rpc/SwitchStateService.h"

#include "agent/Managers.h"
#include "agent/TreeWriter.h"
#include "agent/recording/Recorder.h"
#include "agent/rpc/MplsConversion.h"
#include "agent/rpc/PbrCountersConversion.h"
#include "agent/rpc/UnaryCall.h"

#include <velo/rpc/v1/switch_state.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;

class SwitchStateService final : public v1::SwitchState::CallbackService {
 public:
   SwitchStateService( EventLoop & loop, TreeWriter & writer, Managers & managers,
                       Recorder * recorder )
      : loop_( loop ), writer_( writer ), managers_( managers ), recorder_( recorder ) {}

 private:
   grpc::ServerUnaryReactor * PublishPbrCounters( grpc::CallbackServerContext * context,
                                                  const v1::PublishPbrCountersRequest * request,
                                                  v1::PublishPbrCountersResponse * ) override {
      return checkedCall(
         *context, [&] { return changesFrom( *request ); },
         [&]( CounterChanges changes ) {
            return longCall( loop_, *context,
                             [this, changes = std::move( changes )]( auto answer ) mutable {
                                record( changes );
                                writer_.apply( std::move( changes ), answer );
                             } );
         } );
   }

   grpc::ServerUnaryReactor * PublishMplsRoutes( grpc::CallbackServerContext * context,
                                                 const v1::PublishMplsRoutesRequest * request,
                                                 v1::PublishMplsRoutesResponse * ) override {
      return checkedCall(
         loop_, *context, [&] { return changesFrom( *request ); },
         [this, request]( const auto & changes ) {
            record( *request );
            for ( const MplsRouteChange & each : changes ) {
               std::visit( [this]( const auto & change ) { this->apply( change ); }, each );
            }
         } );
   }
   void apply( const Mpls::Hardware::Route & route ) {
      managers_.mplsStatus().routeIs( route.key(), route );
   }
   void apply( const Mpls::RouteKey & gone ) { managers_.mplsStatus().routeDel( gone ); }

   grpc::ServerUnaryReactor * PublishNexthopGroups( grpc::CallbackServerContext * context,
                                                    const v1::PublishNexthopGroupsRequest * request,
                                                    v1::PublishNexthopGroupsResponse * ) override {
      return checkedCall(
         loop_, *context, [&] { return changesFrom( *request ); },
         [this, request]( const auto & changes ) {
            record( *request );
            for ( const NexthopGroupChange & each : changes ) { apply( each ); }
         } );
   }
   void apply( const NexthopGroupChange & change ) {
      if ( change.name ) {
         managers_.nexthopGroups().nexthopGroupNameIs( change.id, *change.name );
      } else {
         managers_.nexthopGroups().nexthopGroupNameDel( change.id );
      }
   }

   /// A batch that is about to be applied.
   template< typename Batch >
   void record( const Batch & batch ) const {
      if ( recorder_ ) { recorder_->published( batch ); }
   }

   EventLoop & loop_;
   TreeWriter & writer_;
   Managers & managers_;
   Recorder * const recorder_;
};

} // namespace

std::unique_ptr< grpc::Service > makeSwitchStateService( EventLoop & loop, TreeWriter & writer,
                                                         Managers & managers,
                                                         Recorder * recorder ) {
   return std::make_unique< SwitchStateService >( loop, writer, managers, recorder );
}

} // namespace VeloAgent
