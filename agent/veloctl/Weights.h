/// veloctl weights set|delete|list|resync: the BGP link weights of interfaces.

#pragma once

#include "velo/rpc/v1/bgp_link_weights.pb.h"

#include <string>

namespace VeloCtl {

class Commands;

void addWeights( Commands & commands );

/// As Configured.h wants it.
struct Weights {
   using Item = velo::rpc::v1::BgpLinkWeight;
   using ListRequest = velo::rpc::v1::BgpLinkWeightsListRequest;
   using ListResponse = velo::rpc::v1::BgpLinkWeightsListResponse;
   using SetRequest = velo::rpc::v1::BgpLinkWeightsSetRequest;
   using SetResponse = velo::rpc::v1::BgpLinkWeightsSetResponse;
   using ResyncRequest = velo::rpc::v1::BgpLinkWeightsResyncRequest;
   using ResyncResponse = velo::rpc::v1::BgpLinkWeightsResyncResponse;

   static constexpr const char * kName = "weights";

   template< typename Message >
   static auto * itemsOf( Message & message ) {
      return message.mutable_weights();
   }
   /// Sorts like the numbers.
   static std::string keyOf( const Item & item );
   static Item normal( const Item & item ) { return item; }
   static std::string textOf( const Item & item );
};

} // namespace VeloCtl
