/// veloctl overrides set|delete|list|resync|default-weight: the vias that the FIB uses.

#pragma once

#include "velo/rpc/v1/fib_overrides.pb.h"

#include <string>

namespace VeloCtl {

class Commands;

void addOverrides( Commands & commands );

/// As Configured.h wants it.
struct Overrides {
   using Item = velo::rpc::v1::FibOverride;
   using ListRequest = velo::rpc::v1::FibOverridesListRequest;
   using ListResponse = velo::rpc::v1::FibOverridesListResponse;
   using SetRequest = velo::rpc::v1::FibOverridesSetRequest;
   using SetResponse = velo::rpc::v1::FibOverridesSetResponse;
   using ResyncRequest = velo::rpc::v1::FibOverridesResyncRequest;
   using ResyncResponse = velo::rpc::v1::FibOverridesResyncResponse;

   static constexpr const char * kName = "overrides";

   template< typename Message >
   static auto * itemsOf( Message & message ) {
      return message.mutable_overrides();
   }
   /// All that its matcher states.
   static std::string keyOf( const Item & item );
   static Item normal( Item item );
   static std::string textOf( const Item & item );
};

} // namespace VeloCtl
