#include "VeloSdkRpc/MplsRouteHwProgrammingWatcher.h"

namespace VeloSdkRpc {
namespace {

const Lumo::String statusPath = "routing/hardware/mpls/status";
const Lumo::String statusType = "Mpls::Hardware::Status";

/// What the rule that lets everything pass is called. Nothing here reads it.
[[maybe_unused]] const Lumo::String permitAny = "__mpls_permit_any__";

} // namespace

MplsRouteHwProgrammingWatcher::MplsRouteHwProgrammingWatcher(
   velo::mount_mgr * mountMgr, const NexthopGroupMapSource * nexthopGroupMap )
   : velo::mount_handler( mountMgr ), nexthopGroupMap_( nexthopGroupMap ) {
   LUMO_ASSERT( nexthopGroupMap );
}

MplsRouteHwProgrammingWatcher::~MplsRouteHwProgrammingWatcher() = default;

void MplsRouteHwProgrammingWatcher::doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                                              const Lumo::Ptr< QuonSharedMem::MountGroup > & ) {
   Keldb::Mount status( statusPath, statusType );
   status.handleFlags( "r" );
   mounts->doMount( status );
}

void MplsRouteHwProgrammingWatcher::onMountsComplete(
   const Lumo::Ptr< Keldb::EntityManager > & entities,
   const Lumo::Ptr< QuonSharedMem::EntityManager > & ) {
   status_ = Quon::entityCast< const Mpls::Hardware::Status >( entities->getEntity( statusPath ) );
}

/// The machine before goes last: what the end of its callback does finds the new one in place, and
/// may destroy this object.
void MplsRouteHwProgrammingWatcher::startWatching( OnMplsRouteHwProgrammingUpdate callback ) {
   sm_ = MplsRouteHwProgrammingSmIs( callback, status_, *nexthopGroupMap_ );
}

void MplsRouteHwProgrammingWatcher::stopWatching() { sm_ = nullptr; }

} // namespace VeloSdkRpc
