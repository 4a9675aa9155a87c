/// MPLS routes and next-hop groups, between the messages of clients and the switch's values.
///
/// Thread     any

#pragma once

#include "Lumo/String.h"
#include "Mpls/Mpls.h"
#include "NexthopGroup/NexthopGroupId.h"

#include <optional>
#include <variant>
#include <vector>

namespace velo::rpc::v1 {
class MplsProgrammedRoute;
class PublishMplsRoutesRequest;
class PublishNexthopGroupsRequest;
} // namespace velo::rpc::v1

namespace VeloAgent {

/// A route as it is now, or the key of one that is gone.
using MplsRouteChange = std::variant< Mpls::Hardware::Route, Mpls::RouteKey >;

struct NexthopGroupChange {
   Routing::NexthopGroup::NexthopGroupId id = 0;
   std::optional< Lumo::String > name; ///< Nothing: it has none any more.
};

/// Errors: BadRequest, with the place. What passes is safe for whoever watches: every label has 20
/// bits, every kind of adjacency exists.
std::vector< MplsRouteChange >
changesFrom( const velo::rpc::v1::PublishMplsRoutesRequest & request );
std::vector< NexthopGroupChange >
changesFrom( const velo::rpc::v1::PublishNexthopGroupsRequest & request );

/// `route`, which has an acknowledgement over a next-hop group of that name, into `message`.
void toMessage( const Mpls::Hardware::Route & route, const Lumo::String & nexthopGroupName,
                velo::rpc::v1::MplsProgrammedRoute & message );

} // namespace VeloAgent
