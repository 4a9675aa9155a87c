#pragma once

#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/MplsRouteHwProgrammingSm.h"
#include "velo/velo.h"

namespace VeloSdkRpc {

/// MPLS route hardware programming notifications as an SDK agent sees them: mounts the hardware's
/// status of the MPLS routes and tells one client of it while it watches.
///
///    constructed --onMountsComplete--> idle --startWatching--> watching
///                                        ^----- stopWatching -----'
///
/// Owner      the agent
/// Thread     event loop only
/// Re-entry   the callback may call anything here from inside its calls, and destroy this object
class VELO_SDK_RPC_EXPORT MplsRouteHwProgrammingWatcher : public velo::mount_handler {
 public:
   /// Where the agent keeps its map of next-hop groups; it may replace it at any time.
   using NexthopGroupMapSource = MplsRouteHwProgrammingSm::NexthopGroupMapPtr;

   /// Registers with `mountMgr`. `nexthopGroupMap` must outlive the last `startWatching`.
   MplsRouteHwProgrammingWatcher( velo::mount_mgr * mountMgr,
                                  const NexthopGroupMapSource * nexthopGroupMap );
   ~MplsRouteHwProgrammingWatcher() override;

   /// Asks for the hardware's status of the MPLS routes, for reading.
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override;

   /// Takes the mounted status. If it is missing or of another type, `status` is null.
   void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) override;

   /// Tells `callback` of routes from now on, and a callback before it no more. Looks at the
   /// agent's map once, now. What waited for a name on behalf of the callback before is forgotten.
   void startWatching( OnMplsRouteHwProgrammingUpdate callback );

   /// The callback is not called any more; nothing if there is none.
   void stopWatching();

   /// @name For those who look
   /// @{
   /// Null while idle.
   const Lumo::Ptr< MplsRouteHwProgrammingSm > & sm() const { return sm_; }
   /// Null until the mounts are complete.
   const Lumo::Ptr< const Mpls::Hardware::Status > & status() const { return status_; }
   /// @}

 private:
   // Released in reverse order.
   Lumo::Ptr< MplsRouteHwProgrammingSm > sm_;
   Lumo::Ptr< const Mpls::Hardware::Status > status_;
   const NexthopGroupMapSource * const nexthopGroupMap_;
};

} // namespace VeloSdkRpc
