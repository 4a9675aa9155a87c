#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "Routing/Bgp/Bgp.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/SdkErrors.h"
#include "velo/velo.h"

namespace VeloSdkRpc {

/// Lets an SDK client override the BGP link weights of interfaces.
///
///    mgr.link_weight_set( intf, 10 );
///
///    mgr.link_weight_resync_init();        // after a restart of the client, say:
///    mgr.link_weight_set( intf, 10 );      // it sends all that it wants, and
///    mgr.link_weight_resync_complete();    // everything else is removed
///
/// Owner      the agent
/// Thread     event loop only, after the mounts are complete
/// Re-entry   who watches the weights may call anything here when told of a change, and destroy
///            this object. In the middle of `link_weight_resync_complete` a weight that is set
///            stays, a new `link_weight_resync_init` counts nothing as sent that was sent before,
///            and a `link_weight_resync_complete` ends the bracket; one begun after that is another
/// Invariant  outside of a resync bracket the resync set is empty
class VELO_SDK_RPC_EXPORT bgp_link_weight_mgr : public velo::mount_handler {
 public:
   using BgpLinkWeightSdkOverride = Routing::Bgp::BgpLinkWeightSdkOverride;

   /// Not `noexcept`: so the set keeps each hash beside its element.
   struct intf_id_hash {
      std::size_t operator()( velo::intf_id_t intf ) const {
         return static_cast< std::uint32_t >( intf.hash() );
      }
   };

   /// Registers with `mountMgr`.
   explicit bgp_link_weight_mgr( velo::mount_mgr * mountMgr );

   /// Writes nothing: the weights stay.
   ~bgp_link_weight_mgr() override;

   /// Asks for the directory of link weights in the state database, for writing.
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override;

   /// Takes the weights from the mounted directory, where they are made if they are not there. If
   /// the directory is missing or no directory, or something else is there under their name,
   /// `override` is null and nothing else may be called.
   void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) override;

   /// `weight` is what `intf` has from now on; it has no unit, see BgpLinkWeightSdkOverrideEntry.
   /// Any interface and any weight is taken. O(1).
   void link_weight_set( velo::intf_id_t intf, std::uint32_t weight );

   /// Nothing if `intf` has none. O(1).
   void link_weight_del( velo::intf_id_t intf );

   /// From here on every interface counts as not sent that is not set. In the middle of a resync it
   /// starts over.
   void link_weight_resync_init();

   /// Removes the weights of all interfaces that were not set since `link_weight_resync_init`, or
   /// were deleted again. O(weights).
   ///
   /// Errors: `velo::configuration_error` outside of a resync; nothing is changed. What is thrown
   /// by who watches the weights passes through when all is done.
   void link_weight_resync_complete();

   /// For those who look: the weights; null before the mounts are complete.
   const Lumo::Ptr< BgpLinkWeightSdkOverride > & override() const { return override_; }

 private:
   // Released in reverse order.
   std::unordered_set< velo::intf_id_t, intf_id_hash > resyncSet_; ///< Set since the resync began.
   bool resyncMode_ = false;
   Lumo::Ptr< BgpLinkWeightSdkOverride > override_;
};

} // namespace VeloSdkRpc
