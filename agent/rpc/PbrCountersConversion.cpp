#include "agent/rpc/PbrCountersConversion.h"

#include "agent/rpc/BadRequest.h"
#include "agent/rpc/Names.h"

#include <velo/rpc/v1/switch_state.pb.h>

namespace VeloAgent {

namespace {

using velo::rpc::v1::PbrCountersChange;

CounterChange changeFrom( const PbrCountersChange & change ) {
   switch ( change.change_case() ) {
   case PbrCountersChange::kSetClass: {
      const auto & set = change.set_class();
      return CountersSet{ nameFrom( "policy", set.policy() ),
                          nameFrom( "class_name", set.class_name() ),
                          { .packets = set.packets(), .bytes = set.bytes() } };
   }
   case PbrCountersChange::kRemoveClass: {
      const auto & removed = change.remove_class();
      return ClassRemoved{ nameFrom( "policy", removed.policy() ),
                           nameFrom( "class_name", removed.class_name() ) };
   }
   case PbrCountersChange::kRemovePolicy:
      return PolicyRemoved{ nameFrom( "policy", change.remove_policy().policy() ) };
   case PbrCountersChange::CHANGE_NOT_SET:
      break;
   }
   throw BadRequest( "no change; one of set_class, remove_class and remove_policy would be one" );
}

struct ToMessage {
   PbrCountersChange message;

   void operator()( const CountersSet & set ) {
      auto & to = *message.mutable_set_class();
      to.set_policy( set.policy );
      to.set_class_name( set.className );
      to.set_packets( set.counters.packets );
      to.set_bytes( set.counters.bytes );
   }
   void operator()( const ClassRemoved & removed ) {
      auto & to = *message.mutable_remove_class();
      to.set_policy( removed.policy );
      to.set_class_name( removed.className );
   }
   void operator()( const PolicyRemoved & removed ) {
      message.mutable_remove_policy()->set_policy( removed.policy );
   }
};

} // namespace

CounterChanges changesFrom( const velo::rpc::v1::PublishPbrCountersRequest & request ) {
   return convertedEach( "changes", request.changes(), changeFrom );
}

PbrCountersChange messageOf( const CounterChange & change ) {
   ToMessage to;
   std::visit( to, change );
   return to.message;
}

} // namespace VeloAgent
