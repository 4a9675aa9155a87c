#include "agent/rpc/PbrCountersService.h"

#include "VeloSdkRpc/PbrCountersMgr.h"
#include "agent/Printable.h"
#include "agent/rpc/BadRequest.h"
#include "agent/rpc/Names.h"
#include "agent/rpc/ServerStream.h"
#include "agent/rpc/UnaryCall.h"
#include "agent/stream/PbrRecord.h"
#include "agent/stream/PbrStreams.h"

#include <fmt/format.h>
#include <velo/rpc/v1/pbr_counters.grpc.pb.h>

namespace VeloAgent {

namespace {

using namespace velo::rpc::v1;
using VeloSdkRpc::PbrPolicyCountersMgr;
using LongKey = VeloSdkRpc::PbrCountersKey;

class Service final : public PbrCounters::CallbackService {
 public:
   Service( EventLoop & loop, const PbrPolicyCountersMgr & mgr, const PbrFanout & fanout,
            PbrStreams & streams )
      : loop_( loop ), mgr_( mgr ), fanout_( fanout ), streams_( streams ) {}

   grpc::ServerWriteReactor< PbrCountersWatchResponse > *
   Watch( grpc::CallbackServerContext * context,
          const PbrCountersWatchRequest * request ) override {
      using Stream = ServerStream< PbrCountersWatchResponse >;
      // The request goes when this returns.
      return Stream::open( loop_, *context, [this, asked = *request]( Stream & stream ) {
         streams_.open( stream, asked );
      } );
   }

   grpc::ServerUnaryReactor * Get( grpc::CallbackServerContext * context,
                                   const PbrCountersGetRequest * request,
                                   PbrCountersGetResponse * response ) override {
      return unaryCall( loop_, *context,
                        [this, request, response] { get( *request, *response ); } );
   }

 private:
   void get( const PbrCountersGetRequest & request, PbrCountersGetResponse & response ) const {
      const LongKey longKey = longKeyOf( request );
      const auto * known = mgr_.shortKeys()->shortKey()[longKey];
      // A class may be back under another short key.
      const bool other = known && request.key_case() == PbrCountersGetRequest::kShortKey &&
                         known->value() != request.short_key();
      if ( !known || other ) { throw notFound( request ); }
      const auto counters = mgr_.counters( known->value(), longKey );
      response.mutable_record()->set_short_key( known->value() );
      longKeyIs( *response.mutable_record(), longKey );
      countersIs( *response.mutable_record(), counters );
   }

   LongKey longKeyOf( const PbrCountersGetRequest & request ) const {
      switch ( request.key_case() ) {
      case PbrCountersGetRequest::kLongKey: {
         const auto & key = request.long_key();
         return refusingAt( [] { return "long_key"; },
                            [&] {
                               return LongKey( PolicyMap::Counters::PolicyMapKey(
                                                  nameFrom( "policy", key.policy() ) ),
                                               nameFrom( "class_name", key.class_name() ), "" );
                            } );
      }
      case PbrCountersGetRequest::kShortKey: {
         if ( request.short_key() == 0 ) {
            throw BadRequest( "short_key: 0 stands for no class; short keys begin at 1" );
         }
         const auto * delivered = fanout_.latest()[request.short_key()];
         if ( !delivered ) { throw notFound( request ); }
         return delivered->value().longKey();
      }
      default:
         throw BadRequest( "key: not set; it takes a short_key or a long_key" );
      }
   }

   static CallRefused notFound( const PbrCountersGetRequest & request ) {
      const std::string which =
         request.has_long_key() ? fmt::format( "class \"{}\" of policy \"{}\"",
                                               printable( request.long_key().class_name() ),
                                               printable( request.long_key().policy() ) )
                                : fmt::format( "class with the short key {}", request.short_key() );
      return CallRefused( grpc::StatusCode::NOT_FOUND, "there is no " + which );
   }

   EventLoop & loop_;
   const PbrPolicyCountersMgr & mgr_;
   const PbrFanout & fanout_;
   PbrStreams & streams_;
};

} // namespace

std::unique_ptr< grpc::Service > makePbrCountersService( EventLoop & loop,
                                                         const PbrPolicyCountersMgr & mgr,
                                                         const PbrFanout & fanout,
                                                         PbrStreams & streams ) {
   return std::make_unique< Service >( loop, mgr, fanout, streams );
}

} // namespace VeloAgent
