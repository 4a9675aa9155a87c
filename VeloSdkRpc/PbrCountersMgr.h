#pragma once

#include <cstdint>

#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/PbrCountersBacklogSm.h"
#include "velo/velo.h"

namespace VeloSdkRpc {

/// The PBR counters stream as an SDK agent sees it: mounts the published counters, keeps short keys
/// for them, and feeds one consumer while it watches.
///
///    constructed --onMountsComplete--> idle --startWatching--> streaming
///                                        ^----- stopWatching -----'
///
/// While idle `CompressedKeyTableSm` keeps the compression table in step, while streaming
/// `PbrCountersBacklogSm` does so and files changes; never both. Short keys stay the same over any
/// number of switches.
///
/// Owner      the agent
/// Thread     event loop, except `startWatching` and `stopWatching`: any, they take the SDK lock
/// Re-entry   the consumer may call anything here from inside its calls, and destroy this object.
///            A subscriber of the backlog may do so too, but not destroy it while it is switching
/// Invariant  after the mounts are complete exactly one of the two state machines is there
class VELO_SDK_RPC_EXPORT PbrPolicyCountersMgr : public velo::mount_handler {
 public:
   using PolicyMapTypeCounters = PolicyMap::Counters::PolicyMapTypeCounters;

   /// Registers with `mountMgr`.
   explicit PbrPolicyCountersMgr( velo::mount_mgr * mountMgr );
   ~PbrPolicyCountersMgr() override;

   /// Asks for the counters status in shared memory, for reading.
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override;

   /// Takes the mounted status and becomes idle. If the status is missing or of another type,
   /// `root` stays null and the state machines see no input.
   void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) override;

   /// Streams to `frontend` from now on; if already streaming, in place of the one before.
   /// O(classes) when it begins to stream. An exception of a subscriber of the backlog passes
   /// through; the manager is then idle and the consumer is the one before.
   void startWatching( const Lumo::Ptr< PbrCountersFrontend > & frontend );

   /// Stops streaming; nothing if idle. What is pending still goes to the last frontend.
   /// O(classes).
   void stopWatching();

   /// The current counters of `longKey`, read from the mounted status: a record with `shortKey` and
   /// `longKey` as given, whose data is null if the policy map or the class is unknown, or there is
   /// no status. The ACL rule plays no part. Event loop only. O(1).
   PbrCounters counters( std::uint64_t shortKey, const PbrCountersKey & longKey ) const;

   /// @name For those who look; all null or empty before there is something to see
   /// @{
   const Lumo::Ptr< const PolicyMapTypeCounters > & root() const { return root_; }
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys() const { return shortKeys_; }
   const Lumo::Ptr< CompressedKeyTableSm > & compressedKeyTableSm() const {
      return compressedKeyTableSm_;
   }
   const Lumo::Ptr< PbrCountersBacklog > & backlog() const { return backlog_; }
   const Lumo::Ptr< PbrCountersBacklogSm > & pbrCountersBacklogSm() const {
      return pbrCountersBacklogSm_;
   }
   const Lumo::Ptr< PbrCountersBacklogTask > & backlogTask() const { return backlogTask_; }
   /// @}

 private:
   void switchToBacklogSm();
   void switchFromBacklogSm();
   void switchAsWanted();
   void beginStreaming();
   void beginIdling();

   /// What the state machines scan: the mounted status or, without one, an empty one.
   Lumo::Ptr< const PolicyMapTypeCounters > input() const;

   // Released in reverse order.
   Lumo::Ptr< const PolicyMapTypeCounters > root_;
   Lumo::Ptr< PbrCountersKeyCompressionTable > shortKeys_;
   Lumo::Ptr< CompressedKeyTableSm > compressedKeyTableSm_;
   Lumo::Ptr< PbrCountersBacklog > backlog_;
   Lumo::Ptr< PbrCountersBacklogSm > pbrCountersBacklogSm_;
   Lumo::Ptr< PbrCountersBacklogTask > backlogTask_;
   bool streamingWanted_ = false;
   bool switching_ = false;
};

} // namespace VeloSdkRpc
