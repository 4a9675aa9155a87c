#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <unordered_set>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "VeloSdkRpc/FibOverrideMgr.h"

/// The routing configuration managers as they are measured, and what somebody would write by hand
/// who needs the same resync and nothing else: a flat map, a set of what was sent, and a loop. No
/// publishers, nothing may happen while it loops.
namespace bench {

/// What is configured and what it is called, `count` of them in random order.
struct LinkWeightWork {
   using Key = velo::intf_id_t;
   using Item = std::pair< velo::intf_id_t, std::uint32_t >;

   static Item item( std::uint32_t n ) {
      return { velo::intf_id_t( std::uint64_t{ n } << 20 ), n };
   }
   static Key keyOf( const Item & item ) { return item.first; }
   static void changeWeight( Item & item ) { item.second ^= 1; }
};

struct ViaOverrideWork {
   using Key = Routing::Fib::FibOverrideViaMatcher;
   using Item = Routing::Fib::FibOverrideVia;

   static Item item( std::uint32_t n ) {
      const auto prefix = Ipnet::IpPrefix( Ipnet::IpAddr::v4( 10U << 24 | n ), 32 );
      const auto nexthop = Ipnet::IpAddr::v4( 192U << 24 | n % 64 );
      return Item( Key::ofRoute( prefix, Routing::Fib::Via( nexthop ) ), n );
   }
   static const Key & keyOf( const Item & item ) { return item.matcher(); }
   static void changeWeight( Item & item ) {
      item = Item( item.matcher(), *item.weight() ^ 1, item.replacement() );
   }
};

template< class Work >
std::vector< typename Work::Item > itemsInRandomOrder( std::size_t count ) {
   std::vector< typename Work::Item > items;
   for ( std::uint32_t n = 0; n < count; ++n ) { items.push_back( Work::item( n ) ); }
   std::shuffle( items.begin(), items.end(), std::mt19937_64( 7 ) );
   return items;
}

/// A state database with the managers' mounts.
class RoutingDatabase {
 public:
   RoutingDatabase() {
      Keldb::Mount mount( "routing/rib/fibOverride/config/bench",
                          Routing::Fib::FibOverrideConfig::kTypeName );
      mount.handleFlags( "wi" );
      entities_->pathTypeIs( mount );
   }
   velo::mount_mgr & mounts() { return mounts_; }

 private:
   const Lumo::Ptr< Keldb::EntityManager > entities_ = Lumo::makeNode< Keldb::EntityManager >();
   velo::mount_mgr mounts_{ entities_, Lumo::makeNode< QuonSharedMem::EntityManager >() };
};

class LinkWeightMgr : public LinkWeightWork {
 public:
   LinkWeightMgr() { database_.mounts().mountAll(); }

   void set( const Item & item ) { mgr_.link_weight_set( item.first, item.second ); }
   void del( const Key & key ) { mgr_.link_weight_del( key ); }
   void init() { mgr_.link_weight_resync_init(); }
   void complete() { mgr_.link_weight_resync_complete(); }
   std::size_t size() const { return mgr_.override()->bgpLinkWeightSdkOverrideEntry().size(); }
   const Quon::PublishingEntity & configured() const { return *mgr_.override(); }

 private:
   RoutingDatabase database_;
   VeloSdkRpc::bgp_link_weight_mgr mgr_{ &database_.mounts() };
};

class ViaOverrideMgr : public ViaOverrideWork {
 public:
   ViaOverrideMgr() { database_.mounts().mountAll(); }

   void set( const Item & item ) { mgr_.via_override_set( item ); }
   void del( const Key & key ) { mgr_.via_override_del( key ); }
   void init() { mgr_.via_override_resync_init(); }
   void complete() { mgr_.via_override_resync_complete(); }
   std::size_t size() const { return mgr_.config()->viaOverride().size(); }
   const Quon::PublishingEntity & configured() const { return *mgr_.config(); }

 private:
   RoutingDatabase database_;
   VeloSdkRpc::fib_override_mgr mgr_{ &database_.mounts(), "bench" };
};

/// A manager whose configuration somebody watches who does nothing.
template< class Mgr >
class Watched : public Mgr {
 public:
   Watched() { this->configured().publisher()->subscriberAdd( slot_ ); }

   bool isZombie() const { return false; }

 private:
   void changed( Lumo::Publisher *, Lumo::Subscriber *, short, const void *, const void * ) {}

   Lumo::MemberSubscriber< Watched, &Watched::changed > slot_{ this };
};

/// The same by hand.
template< class Key, class Value, class MapHash, class SetHash >
class ByHand {
 public:
   void set( const Key & key, const Value & value ) {
      if ( resync_ ) { sent_.insert( key ); }
      entries_.insert_or_assign( key, value );
   }
   void del( const Key & key ) {
      if ( resync_ ) { sent_.erase( key ); }
      entries_.erase( key );
   }
   void init() {
      sent_.clear();
      resync_ = true;
   }
   void complete() {
      for ( auto at = entries_.begin(); at != entries_.end(); ) {
         const auto current = at++;
         if ( !sent_.contains( current->first ) ) { entries_.erase( current ); }
      }
      sent_.clear();
      resync_ = false;
   }
   std::size_t size() const { return entries_.size(); }

 private:
   boost::unordered_flat_map< Key, Value, MapHash > entries_;
   std::unordered_set< Key, SetHash > sent_;
   bool resync_ = false;
};

struct GoodHash {
   using is_avalanching = void;
   std::size_t operator()( velo::intf_id_t intf ) const { return intf.hash(); }
   std::size_t operator()( const Routing::Fib::FibOverrideViaMatcher & matcher ) const {
      return matcher.hash( 0 );
   }
};

class LinkWeightsByHand : public LinkWeightWork,
                          private ByHand< velo::intf_id_t, std::uint32_t, GoodHash,
                                          VeloSdkRpc::bgp_link_weight_mgr::intf_id_hash > {
 public:
   void set( const Item & item ) { ByHand::set( item.first, item.second ); }
   using ByHand::complete;
   using ByHand::del;
   using ByHand::init;
   using ByHand::size;
};

/// What an override has beside its matcher.
struct ViaOverrideRest {
   Routing::Fib::FibOverrideVia::OptionalWeight weight;
   Routing::Fib::FibOverrideVia::OptionalVia replacement;
};

class ViaOverridesByHand
   : public ViaOverrideWork,
     private ByHand< Routing::Fib::FibOverrideViaMatcher, ViaOverrideRest, GoodHash,
                     VeloSdkRpc::fib_override_mgr::ViaMatcherHash > {
 public:
   void set( const Item & item ) {
      ByHand::set( item.matcher(), { item.weight(), item.replacement() } );
   }
   using ByHand::complete;
   using ByHand::del;
   using ByHand::init;
   using ByHand::size;
};

} // namespace bench
