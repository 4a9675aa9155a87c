/// The SDK managers of this agent and the state that they are mounted on:
///
///    policyMap/counters/pbr               shared memory; the agent's own sources write it
///    routing/bgp/sdk/linkweight           state database; made by the mount
///    routing/rib/fibOverride/config/sdk   state database; made by the mount
///    routing/hardware/mpls/status         state database; the hardware's side writes it
///
/// and, beside these, the agent's map of next-hop groups.
///
/// Owner      the agent
/// Thread     event loop only, except where a manager says otherwise
/// Invariant  the managers go before what they are mounted on

#pragma once

#include "Mpls/Mpls.h"
#include "NexthopGroup/NexthopGroup.h"
#include "PolicyMap/PolicyMap.h"
#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "VeloSdkRpc/FibOverrideMgr.h"
#include "VeloSdkRpc/MplsRouteHwProgrammingWatcher.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "agent/MountList.h"

namespace VeloAgent {

class Managers {
 public:
   using PbrCountersRoot = PolicyMap::Counters::PolicyMapTypeCounters;

   explicit Managers( const Lumo::Ptr< PbrCountersRoot > & pbrCountersRoot );

   /// Runs the mount protocol over all of them, once. Before it no manager may be used.
   void mount() { mounts_.mountAll(); }

   VeloSdkRpc::PbrPolicyCountersMgr & pbrCounters() { return pbrCounters_; }
   VeloSdkRpc::bgp_link_weight_mgr & linkWeights() { return linkWeights_; }
   VeloSdkRpc::fib_override_mgr & fibOverrides() { return fibOverrides_; }
   VeloSdkRpc::MplsRouteHwProgrammingWatcher & mplsRoutes() { return mplsRoutes_; }

   /// What the hardware has of the MPLS routes, for whoever speaks for the hardware.
   Mpls::Hardware::Status & mplsStatus() { return *mplsStatus_; }

   /// The agent's map of next-hop groups, for whoever names them.
   NexthopGroup::NexthopGroupMap & nexthopGroups() { return *nexthopGroups_; }

   /// What the managers are mounted on.
   std::vector< MountReport > mounts() const { return mountList_.reports(); }

   /// The state database, where those who follow the configuration find it.
   const Keldb::EntityManager & entities() const { return *entities_; }

 private:
   const Lumo::Ptr< Mpls::Hardware::Status > mplsStatus_;
   const Lumo::Ptr< NexthopGroup::NexthopGroupMap > nexthopGroups_;
   const Lumo::Ptr< const NexthopGroup::NexthopGroupMap > watchedNexthopGroups_; ///< The same.
   const Lumo::Ptr< Keldb::EntityManager > entities_;
   const Lumo::Ptr< QuonSharedMem::EntityManager > sharedMemEntities_;
   velo::mount_mgr mounts_;
   VeloSdkRpc::PbrPolicyCountersMgr pbrCounters_;
   VeloSdkRpc::bgp_link_weight_mgr linkWeights_;
   VeloSdkRpc::fib_override_mgr fibOverrides_;
   VeloSdkRpc::MplsRouteHwProgrammingWatcher mplsRoutes_;
   MountList mountList_; ///< The last of the handlers.
};

} // namespace VeloAgent
