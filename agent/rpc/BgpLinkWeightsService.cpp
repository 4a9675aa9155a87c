#include "agent/rpc/BgpLinkWeightsService.h"

#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "agent/rpc/Page.h"
#include "agent/rpc/ResyncCall.h"
#include "agent/rpc/UnaryCall.h"

#include <velo/rpc/v1/bgp_link_weights.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;

/// The manager as the calls use it.
class LinkWeights {
 public:
   using Request = v1::BgpLinkWeightsResyncRequest;
   using Response = v1::BgpLinkWeightsResyncResponse;
   using Values = std::vector< v1::BgpLinkWeight >;
   using Interfaces = std::vector< velo::intf_id_t >;

   LinkWeights( VeloSdkRpc::bgp_link_weight_mgr & manager,
                std::chrono::milliseconds resyncPatience )
      : patience( resyncPatience ), manager_( manager ) {}

   /// Every interface may have any weight.
   template< typename AnyRequest >
   static Values valuesFrom( const AnyRequest & request ) {
      const auto & weights = boundedElements( "weights", request.weights() );
      return { weights.begin(), weights.end() };
   }
   static Interfaces interfacesFrom( const v1::BgpLinkWeightsDeleteRequest & request ) {
      const auto & ids = boundedElements( "interface_ids", request.interface_ids() );
      return Interfaces( ids.begin(), ids.end() );
   }

   void set( const Values & weights ) {
      for ( const v1::BgpLinkWeight & weight : weights ) {
         manager_.link_weight_set( velo::intf_id_t( weight.interface_id() ), weight.weight() );
      }
   }
   /// How many had one.
   std::size_t del( const Interfaces & interfaces ) {
      const std::size_t before = size();
      for ( const velo::intf_id_t intf : interfaces ) { manager_.link_weight_del( intf ); }
      return before - size();
   }
   void list( const v1::BgpLinkWeightsListRequest & request,
              v1::BgpLinkWeightsListResponse & response ) const {
      listPage( members(), request, response, [&]( const auto & entry ) -> const auto & {
         v1::BgpLinkWeight & weight = *response.add_weights();
         weight.set_interface_id( entry.fwkKey().value() );
         weight.set_weight( entry.value().weight() );
         return weight;
      } );
   }

   std::size_t size() const { return members().size(); }
   void resyncInit() { manager_.link_weight_resync_init(); }
   void resyncComplete() { manager_.link_weight_resync_complete(); }
   const std::chrono::milliseconds patience;
   ResyncCall< LinkWeights > * resyncing = nullptr;

 private:
   const Routing::Bgp::BgpLinkWeightSdkOverride::Entries::Members & members() const {
      return manager_.override()->bgpLinkWeightSdkOverrideEntry();
   }

   VeloSdkRpc::bgp_link_weight_mgr & manager_;
};

/// All methods but Resync, whose messages are read as bytes, see ResyncCall.h.
using ParsedWeightCalls =
   v1::BgpLinkWeights::WithCallbackMethod_Set< v1::BgpLinkWeights::WithCallbackMethod_Delete<
      v1::BgpLinkWeights::WithCallbackMethod_List< v1::BgpLinkWeights::Service > > >;

class BgpLinkWeightsService final
   : public v1::BgpLinkWeights::WithRawCallbackMethod_Resync< ParsedWeightCalls > {
 public:
   BgpLinkWeightsService( EventLoop & loop, VeloSdkRpc::bgp_link_weight_mgr & manager,
                          std::chrono::milliseconds resyncPatience )
      : loop_( loop ), weights_( manager, resyncPatience ) {}

 private:
   grpc::ServerUnaryReactor * Set( grpc::CallbackServerContext * context,
                                   const v1::BgpLinkWeightsSetRequest * request,
                                   v1::BgpLinkWeightsSetResponse * ) override {
      return checkedCall(
         loop_, *context, [&] { return LinkWeights::valuesFrom( *request ); },
         [this]( const LinkWeights::Values & values ) { weights_.set( values ); } );
   }

   grpc::ServerUnaryReactor * Delete( grpc::CallbackServerContext * context,
                                      const v1::BgpLinkWeightsDeleteRequest * request,
                                      v1::BgpLinkWeightsDeleteResponse * response ) override {
      return checkedCall(
         loop_, *context, [&] { return LinkWeights::interfacesFrom( *request ); },
         [this, response]( const LinkWeights::Interfaces & interfaces ) {
            response->set_deleted( weights_.del( interfaces ) );
         } );
   }

   grpc::ServerUnaryReactor * List( grpc::CallbackServerContext * context,
                                    const v1::BgpLinkWeightsListRequest * request,
                                    v1::BgpLinkWeightsListResponse * response ) override {
      return unaryCall( loop_, *context,
                        [this, request, response] { weights_.list( *request, *response ); } );
   }

   grpc::ServerReadReactor< grpc::ByteBuffer > * Resync( grpc::CallbackServerContext *,
                                                         grpc::ByteBuffer * response ) override {
      return ResyncCall< LinkWeights >::begin( loop_, weights_, *response );
   }

   EventLoop & loop_;
   LinkWeights weights_;
};

} // namespace

std::unique_ptr< grpc::Service >
makeBgpLinkWeightsService( EventLoop & loop, VeloSdkRpc::bgp_link_weight_mgr & manager,
                           std::chrono::milliseconds resyncPatience ) {
   return std::make_unique< BgpLinkWeightsService >( loop, manager, resyncPatience );
}

} // namespace VeloAgent
