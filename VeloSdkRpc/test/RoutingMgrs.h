#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "VeloSdkRpc/FibOverrideMgr.h"

/// The two routing configuration managers, mounted and told what to do in the same verbs: what they
/// configure is a weight by a number, what is behind these their own affair.
namespace VeloSdkRpc::test {

using Weights = std::map< std::uint32_t, std::uint32_t >;

/// A state database as an agent has it.
struct StateDatabase {
   /// A mount of `path` by path alone makes a configuration of via overrides there.
   void keepsFibOverrideConfigAt( const Lumo::String & path ) {
      Keldb::Mount mount( path, Routing::Fib::FibOverrideConfig::kTypeName );
      mount.handleFlags( "wi" );
      entities->pathTypeIs( mount );
   }

   const Lumo::Ptr< Keldb::EntityManager > entities = Lumo::makeNode< Keldb::EntityManager >();
   velo::mount_mgr mounts{ entities, Lumo::makeNode< QuonSharedMem::EntityManager >() };
};

/// Interfaces that differ in the high half of their identifiers only.
class LinkWeights {
 public:
   LinkWeights() {
      database_.mounts.mountAll();
      entity_ = mgr_->override();
   }

   void set( std::uint32_t n, std::uint32_t weight ) { mgr_->link_weight_set( intf( n ), weight ); }
   void del( std::uint32_t n ) { mgr_->link_weight_del( intf( n ) ); }
   void init() { mgr_->link_weight_resync_init(); }
   void complete() { mgr_->link_weight_resync_complete(); }
   void destroyMgr() { mgr_ = nullptr; }

   /// By somebody else than the manager.
   void setDirectly( std::uint32_t n, std::uint32_t weight ) {
      entity_->bgpLinkWeightSdkOverrideEntryIs(
         Ipnet::IntfId( intf( n ) ), Routing::Bgp::BgpLinkWeightSdkOverrideEntry( weight ) );
   }
   void delDirectly( std::uint32_t n ) {
      entity_->bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId( intf( n ) ) );
   }

   Weights contents() const {
      Weights all;
      for ( const auto & entry : entity_->bgpLinkWeightSdkOverrideEntry() ) {
         all[number( &entry.fwkKey() )] = entry.value().weight();
      }
      return all;
   }
   std::size_t size() const { return entity_->bgpLinkWeightSdkOverrideEntry().size(); }

   const Quon::PublishingEntity & entity() const { return *entity_; }
   /// Which one a notification's key is.
   static std::uint32_t number( const void * key ) {
      return static_cast< std::uint32_t >( static_cast< const Ipnet::IntfId * >( key )->value() >>
                                           32 );
   }

 private:
   static velo::intf_id_t intf( std::uint32_t n ) {
      return velo::intf_id_t( std::uint64_t{ n } << 32 );
   }

   StateDatabase database_;
   std::unique_ptr< bgp_link_weight_mgr > mgr_ =
      std::make_unique< bgp_link_weight_mgr >( &database_.mounts );
   Lumo::Ptr< Routing::Bgp::BgpLinkWeightSdkOverride > entity_;
};

/// Next hops of one route.
class ViaOverrides {
 public:
   using FibOverrideVia = Routing::Fib::FibOverrideVia;
   using FibOverrideViaMatcher = Routing::Fib::FibOverrideViaMatcher;

   ViaOverrides() {
      database_.keepsFibOverrideConfigAt( mgr_->getMountPath() );
      database_.mounts.mountAll();
      entity_ = mgr_->config();
   }

   void set( std::uint32_t n, std::uint32_t weight ) { mgr_->via_override_set( via( n, weight ) ); }
   void del( std::uint32_t n ) { mgr_->via_override_del( matcher( n ) ); }
   void init() { mgr_->via_override_resync_init(); }
   void complete() { mgr_->via_override_resync_complete(); }
   void destroyMgr() { mgr_ = nullptr; }

   void setDirectly( std::uint32_t n, std::uint32_t weight ) {
      entity_->viaOverrideIs( via( n, weight ) );
   }
   void delDirectly( std::uint32_t n ) { entity_->viaOverrideDel( matcher( n ) ); }

   Weights contents() const {
      Weights all;
      for ( const auto & entry : entity_->viaOverride() ) {
         all[number( &entry.fwkKey() )] = *entry.value().weight();
      }
      return all;
   }
   std::size_t size() const { return entity_->viaOverride().size(); }

   const Quon::PublishingEntity & entity() const { return *entity_; }
   static std::uint32_t number( const void * key ) {
      const auto & bytes = static_cast< const FibOverrideViaMatcher * >( key )->via().nexthop();
      std::uint32_t n = 0;
      for ( unsigned i = 1; i < 4; ++i ) { n = n << 8 | bytes->bytes()[i]; }
      return n;
   }

 private:
   /// Those of 10.0.0.0/8: up to 2^24 of them.
   static FibOverrideViaMatcher matcher( std::uint32_t n ) {
      return FibOverrideViaMatcher::ofRoute(
         Ipnet::IpPrefix( "0.0.0.0/0" ), Routing::Fib::Via( Ipnet::IpAddr::v4( 10U << 24 | n ) ) );
   }
   static FibOverrideVia via( std::uint32_t n, std::uint32_t weight ) {
      return FibOverrideVia( matcher( n ), weight );
   }

   StateDatabase database_;
   std::unique_ptr< fib_override_mgr > mgr_ =
      std::make_unique< fib_override_mgr >( &database_.mounts, "te" );
   Lumo::Ptr< Routing::Fib::FibOverrideConfig > entity_;
};

} // namespace VeloSdkRpc::test
