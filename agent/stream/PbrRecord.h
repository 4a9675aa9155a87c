/// A record of the library as a message of the interface.

#pragma once

#include "VeloSdkRpc/PbrCountersBacklog.h"

#include <velo/rpc/v1/pbr_counters.pb.h>

namespace VeloAgent {

inline void longKeyIs( velo::rpc::v1::PbrCountersRecord & record,
                       const VeloSdkRpc::PbrCountersKey & key ) {
   const auto bytes = []( std::string_view text ) { return std::string( text ); };
   auto & longKey = *record.mutable_long_key();
   longKey.set_policy( bytes( key.policyKey().name() ) );
   longKey.set_class_name( bytes( key.name() ) );
   longKey.set_acl_rule( bytes( key.aclRule() ) );
}

/// The counters as they are now; none if they have not been counted yet.
inline void countersIs( velo::rpc::v1::PbrCountersRecord & record,
                        const VeloSdkRpc::PbrCounters & counters ) {
   if ( !counters.data() ) { return; }
   const auto & counted = counters.data()->countData();
   record.mutable_counters()->set_packets( counted.packets() );
   record.mutable_counters()->set_bytes( counted.bytes() );
}

} // namespace VeloAgent
