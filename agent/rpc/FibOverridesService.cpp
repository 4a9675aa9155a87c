#include "agent/rpc/FibOverridesService.h"

#include "VeloSdkRpc/FibOverrideMgr.h"
#include "agent/rpc/FibOverrideConversion.h"
#include "agent/rpc/Page.h"
#include "agent/rpc/ResyncCall.h"
#include "agent/rpc/UnaryCall.h"

#include <velo/rpc/v1/fib_overrides.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;
using Routing::Fib::FibOverrideConfig;
using Routing::Fib::FibOverrideVia;
using Routing::Fib::FibOverrideViaMatcher;

/// The manager as the calls use it.
class Overrides {
 public:
   using Request = v1::FibOverridesResyncRequest;
   using Response = v1::FibOverridesResyncResponse;
   using Values = std::vector< FibOverrideVia >;
   using Matchers = std::vector< FibOverrideViaMatcher >;

   Overrides( VeloSdkRpc::fib_override_mgr & manager, std::chrono::milliseconds resyncPatience )
      : patience( resyncPatience ), manager_( manager ) {}

   template< typename AnyRequest >
   static Values valuesFrom( const AnyRequest & request ) {
      return convertedEach( kField, boundedElements( kField, request.overrides() ), overrideFrom );
   }
   static Matchers matchersFrom( const v1::FibOverridesDeleteRequest & request ) {
      return convertedEach( "matchers", boundedElements( "matchers", request.matchers() ),
                            matcherFrom );
   }

   /// What the configuration would refuse is found by a configuration on the side, before anything
   /// enters the real one.
   void set( const Values & overrides ) {
      const auto aside = Lumo::makeNode< FibOverrideConfig >();
      forEach( kField, overrides, [&]( const auto & each ) { aside->viaOverrideIs( each ); } );
      for ( const FibOverrideVia & each : overrides ) { manager_.via_override_set( each ); }
   }
   /// How many had one.
   std::size_t del( const Matchers & matchers ) {
      const std::size_t before = size();
      for ( const FibOverrideViaMatcher & each : matchers ) { manager_.via_override_del( each ); }
      return before - size();
   }
   void list( const v1::FibOverridesListRequest & request,
              v1::FibOverridesListResponse & response ) const {
      listPage( members(), request, response, [&]( const auto & entry ) -> const auto & {
         v1::FibOverride & message = *response.add_overrides();
         toMessage( entry.value(), message );
         return message;
      } );
   }

   std::size_t size() const { return members().size(); }
   void resyncInit() { manager_.via_override_resync_init(); }
   void resyncComplete() { manager_.via_override_resync_complete(); }
   const std::chrono::milliseconds patience;
   ResyncCall< Overrides > * resyncing = nullptr;

 private:
   static constexpr const char * kField = "overrides";

   const FibOverrideConfig::ViaOverrides::Members & members() const {
      return manager_.config()->viaOverride();
   }

   VeloSdkRpc::fib_override_mgr & manager_;
};

/// All methods but Resync, whose messages are read as bytes, see ResyncCall.h.
using ParsedOverrideCalls = v1::FibOverrides::WithCallbackMethod_Set<
   v1::FibOverrides::WithCallbackMethod_Delete< v1::FibOverrides::WithCallbackMethod_List<
      v1::FibOverrides::WithCallbackMethod_GetDefaultUcmpWeight<
         v1::FibOverrides::WithCallbackMethod_SetDefaultUcmpWeight<
            v1::FibOverrides::Service > > > > >;

class FibOverridesService final
   : public v1::FibOverrides::WithRawCallbackMethod_Resync< ParsedOverrideCalls > {
 public:
   FibOverridesService( EventLoop & loop, VeloSdkRpc::fib_override_mgr & manager,
                        std::chrono::milliseconds resyncPatience )
      : loop_( loop ), manager_( manager ), overrides_( manager, resyncPatience ) {}

 private:
   grpc::ServerUnaryReactor * Set( grpc::CallbackServerContext * context,
                                   const v1::FibOverridesSetRequest * request,
                                   v1::FibOverridesSetResponse * ) override {
      return checkedCall(
         loop_, *context, [&] { return Overrides::valuesFrom( *request ); },
         [this]( const Overrides::Values & values ) { overrides_.set( values ); } );
   }

   grpc::ServerUnaryReactor * Delete( grpc::CallbackServerContext * context,
                                      const v1::FibOverridesDeleteRequest * request,
                                      v1::FibOverridesDeleteResponse * response ) override {
      return checkedCall(
         loop_, *context, [&] { return Overrides::matchersFrom( *request ); },
         [this, response]( const Overrides::Matchers & matchers ) {
            response->set_deleted( overrides_.del( matchers ) );
         } );
   }

   grpc::ServerUnaryReactor * List( grpc::CallbackServerContext * context,
                                    const v1::FibOverridesListRequest * request,
                                    v1::FibOverridesListResponse * response ) override {
      return unaryCall( loop_, *context,
                        [this, request, response] { overrides_.list( *request, *response ); } );
   }

   grpc::ServerReadReactor< grpc::ByteBuffer > * Resync( grpc::CallbackServerContext *,
                                                         grpc::ByteBuffer * response ) override {
      return ResyncCall< Overrides >::begin( loop_, overrides_, *response );
   }

   grpc::ServerUnaryReactor *
   GetDefaultUcmpWeight( grpc::CallbackServerContext * context,
                         const v1::GetDefaultUcmpWeightRequest *,
                         v1::GetDefaultUcmpWeightResponse * response ) override {
      return unaryCall( loop_, *context, [this, response] {
         if ( const auto weight = manager_.default_ucmp_weight() ) {
            response->set_weight( *weight );
         }
      } );
   }

   grpc::ServerUnaryReactor * SetDefaultUcmpWeight( grpc::CallbackServerContext * context,
                                                    const v1::SetDefaultUcmpWeightRequest * request,
                                                    v1::SetDefaultUcmpWeightResponse * ) override {
      const auto weightFrom = [request] {
         if ( !request->has_weight() ) {
            throw BadRequest( "weight is not set; any number would do, also 0" );
         }
         return request->weight();
      };
      return checkedCall( loop_, *context, weightFrom, [this]( std::uint32_t weight ) {
         manager_.default_ucmp_weight_set( weight );
      } );
   }

   EventLoop & loop_;
   VeloSdkRpc::fib_override_mgr & manager_;
   Overrides overrides_;
};

} // namespace

std::unique_ptr< grpc::Service >
makeFibOverridesService( EventLoop & loop, VeloSdkRpc::fib_override_mgr & manager,
                         std::chrono::milliseconds resyncPatience ) {
   return std::make_unique< FibOverridesService >( loop, manager, resyncPatience );
}

} // namespace VeloAgent
