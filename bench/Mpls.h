#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "VeloSdkRpc/MplsRouteHwProgrammingSm.h"

/// MPLS routes and next-hop groups for the benchmarks, the machine over them, and what somebody
/// would write by hand for just that job.
namespace bench {

using Mpls::RouteKey;
using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Plink::Fib::FecId;

/// Routes over groups, met in random order. Each keeps to its group; its version goes up.
class MplsPlan {
 public:
   MplsPlan( std::size_t routes, std::size_t groups ) : labels( routes ), groups_( groups ) {
      std::iota( labels.begin(), labels.end(), 16U );
      std::ranges::shuffle( labels, std::mt19937( 1 ) );
   }

   std::size_t groups() const { return groups_; }
   Route acknowledged( std::uint32_t label, std::uint32_t version ) const {
      const auto group = static_cast< std::uint32_t >( label % groups_ );
      return Route( RouteKey( label ),
                    AckInfo( FecId::nexthopGroupIdToFecId( group ), version, 1, 0 ) );
   }

   std::vector< std::uint32_t > labels;

 private:
   const std::size_t groups_;
};

/// Adds up what it is told, so that nothing of it can be left out.
struct CountingClient {
   std::size_t told = 0;
   std::uint64_t sum = 0;

   VeloSdkRpc::OnMplsRouteHwProgrammingUpdate callback() {
      return [this]( Route route ) {
         ++told;
         sum += route.ackInfo().value().routeVersion();
      };
   }
};

/// The machine over the two entities. All routes are there, none acknowledged, no group named.
class MplsWorld {
 public:
   explicit MplsWorld( const MplsPlan & plan ) {
      for ( const std::uint32_t label : plan.labels ) {
         status->routeIs( RouteKey( label ), Route( RouteKey( label ) ) );
      }
      sm = VeloSdkRpc::MplsRouteHwProgrammingSmIs( client.callback(), status, groups );
   }

   void put( const Route & route ) { status->routeIs( route.key(), route ); }
   void name( std::uint32_t group, const Lumo::String & name ) {
      groups->nexthopGroupNameIs( group, name );
   }
   std::size_t parked() const {
      std::size_t all = 0;
      for ( const auto & entry : sm->parkedRoutes() ) { all += entry.count; }
      return all;
   }

   const Lumo::Ptr< Mpls::Hardware::Status > status = Lumo::makeNode< Mpls::Hardware::Status >();
   const Lumo::Ptr< NexthopGroup::NexthopGroupMap > groups =
      Lumo::makeNode< NexthopGroup::NexthopGroupMap >();
   CountingClient client;
   Lumo::Ptr< VeloSdkRpc::MplsRouteHwProgrammingSm > sm;
};

/// The same by hand, over the best containers to be had: one plain class that keeps the routes and
/// the names itself. No publishers, no notifications, nothing may happen while it calls its client.
class MplsReference {
 public:
   explicit MplsReference( const MplsPlan & plan ) {
      for ( const std::uint32_t label : plan.labels ) {
         routes_.emplace( label, Route( RouteKey( label ) ) );
      }
   }

   void put( const Route & route ) {
      Route & present = routes_[route.key().label()];
      const Route previous = std::exchange( present, route );
      if ( !( ack( previous ) == ack( route ) &&
              previous.programmingState() == route.programmingState() ) ) {
         judge( route );
      }
   }
   void name( std::uint32_t group, const Lumo::String & name ) {
      names_[group] = name;
      const auto waiting = parked_.find( FecId::nexthopGroupIdToFecId( group ).value() );
      if ( waiting == parked_.end() ) { return; }
      const auto labels = std::move( waiting->second );
      parked_.erase( waiting );
      if ( name.empty() ) { return; }
      for ( const std::uint32_t label : labels ) { judge( routes_[label] ); }
   }
   std::size_t parked() const {
      std::size_t all = 0;
      for ( const auto & [fec, labels] : parked_ ) { all += labels.size(); }
      return all;
   }

   CountingClient client;

 private:
   struct Hash {
      using is_avalanching = void;
      std::size_t operator()( std::uint64_t key ) const { return Quon::mix64( key ); }
   };
   template< class Key, class Value >
   using Map = boost::unordered_flat_map< Key, Value, Hash >;

   static AckInfo ack( const Route & route ) {
      return route.ackInfo() ? route.ackInfo().value() : AckInfo();
   }
   void judge( const Route & route ) {
      const AckInfo info = ack( route );
      if ( info.routeVersion() == 0 || route.programmingState() != 0 ||
           info.fecId().adjType() != Plink::Fib::AdjType::nexthopGroup ||
           info.nexthopGroupVersion() == 0 ) {
         return;
      }
      const auto name = names_.find( FecId::fecIdToNexthopGroupId( info.fecId() ) );
      if ( name == names_.end() || name->second.empty() ) {
         parked_[info.fecId().value()].insert( route.key().label() );
      } else {
         callback_( route );
      }
   }

   Map< std::uint32_t, Route > routes_;
   Map< std::uint32_t, Lumo::String > names_;
   Map< std::uint64_t, boost::unordered_flat_set< std::uint32_t, Hash > > parked_;
   VeloSdkRpc::OnMplsRouteHwProgrammingUpdate callback_ = client.callback();
};

} // namespace bench
