#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "VeloSdkRpc/MplsRouteHwProgrammingSm.h"

namespace VeloSdkRpc::test {

using Mpls::RouteKey;
using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Plink::Fib::FecId;

/// What the hardware says of MPLS routes, and the agent of next-hop groups, told in verbs. Routes
/// are named by their label.
class MplsState {
 public:
   using Group = Routing::NexthopGroup::NexthopGroupId;

   static FecId fec( Group group ) { return FecId::nexthopGroupIdToFecId( group ); }

   /// As the client wants it: programmed, acknowledged, over a versioned group.
   static Route ready( std::uint32_t label, Group group, std::uint32_t version = 1 ) {
      return Route( RouteKey( label ), AckInfo( fec( group ), version, 1, 0 ) );
   }

   void put( const Route & route ) { status->routeIs( route.key(), route ); }
   void put( std::uint32_t label, Group group, std::uint32_t version = 1 ) {
      put( ready( label, group, version ) );
   }
   void remove( std::uint32_t label ) { status->routeDel( RouteKey( label ) ); }
   /// The route is told once more, as when it changed in what nobody here reads.
   void touch( std::uint32_t label ) {
      const RouteKey key( label );
      const Route route = status->route()[key]->value();
      status->publisher()->publishChange( Mpls::Hardware::Status::kRoute, &key, &route, &route );
   }

   void name( Group group, const std::string & name ) { groups->nexthopGroupNameIs( group, name ); }
   void unname( Group group ) { groups->nexthopGroupNameDel( group ); }

   const Lumo::Ptr< Mpls::Hardware::Status > status = Lumo::makeNode< Mpls::Hardware::Status >();
   const Lumo::Ptr< NexthopGroup::NexthopGroupMap > groups =
      Lumo::makeNode< NexthopGroup::NexthopGroupMap >();
};

/// Keeps what it is told, then does what it was asked to.
class MplsClient {
 public:
   OnMplsRouteHwProgrammingUpdate callback() {
      return [this]( Route route ) {
         told.push_back( route );
         if ( const auto act = then ) { act( route ); } // It may set another.
      };
   }

   std::vector< std::uint32_t > labels() const {
      std::vector< std::uint32_t > all;
      for ( const Route & route : told ) { all.push_back( route.key().label() ); }
      return all;
   }

   std::vector< Route > told;
   std::function< void( const Route & ) > then;
};

/// A machine over such a state, with a client.
class MplsSmFixture : public testing::Test {
 protected:
   using Sm = MplsRouteHwProgrammingSm;

   Lumo::Ptr< Sm > newSm() {
      return MplsRouteHwProgrammingSmIs( client.callback(), state.status, state.groups );
   }

   /// How many routes are parked under the FEC of the group; none without an entry.
   std::size_t parked( MplsState::Group group ) const {
      const auto entry = sm->fecIdToMplsRouteKeySet( MplsState::fec( group ) );
      return entry ? entry->mplsRouteKeySet().size() : 0;
   }
   bool isParked( std::uint32_t label, MplsState::Group group ) const {
      const auto entry = sm->fecIdToMplsRouteKeySet( MplsState::fec( group ) );
      return entry && entry->mplsRouteKeySet()[RouteKey( label )];
   }
   bool nothingParked() const { return sm->fecIdToMplsRouteKeySet().empty(); }

   /// Only the first call of all causes it.
   void atFirst( std::function< void( const Route & ) > act ) {
      client.then = [this, act]( const Route & route ) {
         client.then = nullptr;
         act( route );
      };
   }

   MplsState state;
   MplsClient client;
   Lumo::Ptr< Sm > sm = newSm();
};

} // namespace VeloSdkRpc::test
