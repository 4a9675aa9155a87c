#include "VeloSdkRpc/FibOverrideMgr.h"

#include <functional>

#include "VeloSdkRpc/detail/ResyncBracket.h"

namespace VeloSdkRpc {
namespace {

const Lumo::String configPath = "routing/rib/fibOverride/config";

} // namespace

fib_override_mgr::fib_override_mgr( velo::mount_mgr * mountMgr,
                                    const Lumo::String & mountPointName )
   : velo::mount_handler( mountMgr, Quon::checkedPathStep( mountPointName ) ) {}

fib_override_mgr::~fib_override_mgr() { detail::ResyncPass::endAll( resyncMode_ ); }

Lumo::String fib_override_mgr::getMountPath() const {
   return configPath + "/" + get_mount_point_name();
}

void fib_override_mgr::doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                                 const Lumo::Ptr< QuonSharedMem::MountGroup > & ) {
   mounts->doMountPath( getMountPath() );
}

void fib_override_mgr::onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                                         const Lumo::Ptr< QuonSharedMem::EntityManager > & ) {
   config_ = Quon::entityCast< FibOverrideConfig >( entities->getEntity( getMountPath() ) );
}

void fib_override_mgr::via_override_set( const FibOverrideVia & via ) {
   if ( resyncMode_ ) { resyncSet_.insert( via.matcher() ); }
   config_->viaOverrideIs( via );
}

void fib_override_mgr::via_override_del( const FibOverrideViaMatcher & matcher ) {
   if ( resyncMode_ ) { resyncSet_.erase( matcher ); }
   config_->viaOverrideDel( matcher );
}

Quon::Optional< std::uint32_t > fib_override_mgr::default_ucmp_weight() const {
   return config_->ucmpWeightDefault();
}

void fib_override_mgr::default_ucmp_weight_set( std::uint32_t weight ) {
   config_->ucmpWeightDefaultIs( weight );
}

void fib_override_mgr::via_override_resync_init() {
   resyncSet_.clear();
   resyncMode_ = true;
}

void fib_override_mgr::via_override_resync_complete() {
   detail::requireResync( resyncMode_ );
   const auto config = config_;
   detail::deleteWhatWasNotSent(
      resyncMode_, resyncSet_, config->viaOverride(), std::identity(),
      [&config]( auto & at ) { config->viaOverrideDel( at ); },
      [&config]( const auto & unwanted ) { return config->viaOverrideDelUnseen( unwanted ); } );
}

} // namespace VeloSdkRpc
