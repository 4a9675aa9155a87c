#include "VeloSdkRpc/BgpLinkWeightMgr.h"

#include "Quon/Dir.h"
#include "VeloSdkRpc/detail/ResyncBracket.h"

namespace VeloSdkRpc {
namespace {

const Lumo::String linkWeightPath = "routing/bgp/sdk/linkweight";
const Lumo::String overrideName = "bgpLinkWeightSdkOverride";

} // namespace

bgp_link_weight_mgr::bgp_link_weight_mgr( velo::mount_mgr * mountMgr )
   : velo::mount_handler( mountMgr ) {}

bgp_link_weight_mgr::~bgp_link_weight_mgr() { detail::ResyncPass::endAll( resyncMode_ ); }

void bgp_link_weight_mgr::doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                                    const Lumo::Ptr< QuonSharedMem::MountGroup > & ) {
   Keldb::Mount mount( linkWeightPath, Quon::Dir::kTypeName, Keldb::AllMountFlags( 0 ) );
   mount.handleFlags( "wi" );
   mounts->doMount( mount );
}

void bgp_link_weight_mgr::onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                                            const Lumo::Ptr< QuonSharedMem::EntityManager > & ) {
   const auto directory = Quon::entityCast< Quon::Dir >( entities->getEntity( linkWeightPath ) );
   override_ = directory ? Quon::entityCast< BgpLinkWeightSdkOverride >( directory->createEntity(
                              BgpLinkWeightSdkOverride::kTypeName, overrideName ) )
                         : nullptr;
}

void bgp_link_weight_mgr::link_weight_set( velo::intf_id_t intf, std::uint32_t weight ) {
   if ( resyncMode_ ) { resyncSet_.insert( intf ); }
   override_->bgpLinkWeightSdkOverrideEntryIs(
      intf, Routing::Bgp::BgpLinkWeightSdkOverrideEntry( weight ) );
}

void bgp_link_weight_mgr::link_weight_del( velo::intf_id_t intf ) {
   if ( resyncMode_ ) { resyncSet_.erase( intf ); }
   override_->bgpLinkWeightSdkOverrideEntryDel( intf );
}

void bgp_link_weight_mgr::link_weight_resync_init() {
   resyncSet_.clear();
   resyncMode_ = true;
}

void bgp_link_weight_mgr::link_weight_resync_complete() {
   detail::requireResync( resyncMode_ );
   const auto weights = override_;
   detail::deleteWhatWasNotSent(
      resyncMode_, resyncSet_, weights->bgpLinkWeightSdkOverrideEntry(),
      []( Ipnet::IntfId intf ) { return velo::intf_id_t( intf ); },
      [&weights]( auto & at ) { weights->bgpLinkWeightSdkOverrideEntryDel( at ); },
      [&weights]( const auto & unwanted ) {
         return weights->bgpLinkWeightSdkOverrideEntryDelUnseen( unwanted );
      } );
}

} // namespace VeloSdkRpc
