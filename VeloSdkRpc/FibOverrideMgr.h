#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_set>

#include "Lumo/String.h"
#include "Quon/Optional.h"
#include "Routing/Fib/Fib.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/SdkErrors.h"
#include "velo/velo.h"

namespace VeloSdkRpc {

/// Lets an SDK client override the vias that the FIB uses, and the default UCMP weight. Each
/// manager has a configuration of its own, named like its mount point:
///
///    VeloSdkRpc::fib_override_mgr mgr( &mounts, "te" );   // routing/rib/fibOverride/config/te
///    ...
///    mgr.via_override_set( FibOverrideVia( FibOverrideViaMatcher::ofRoute( prefix, via ), 3 ) );
///
/// A resync bracket keeps what is set in it and removes all other vias, see bgp_link_weight_mgr;
/// the default UCMP weight has no part in it.
///
/// Owner      the agent
/// Thread     event loop only, after the mounts are complete
/// Re-entry   who watches the configuration may call anything here when told of a change, and
///            destroy this object. In the middle of `via_override_resync_complete` a via that is
///            set stays, a new `via_override_resync_init` counts nothing as sent that was sent
///            before, and a `via_override_resync_complete` ends the bracket; one begun after that
///            is another
/// Invariant  outside of a resync bracket the resync set is empty
class VELO_SDK_RPC_EXPORT fib_override_mgr : public velo::mount_handler {
 public:
   using FibOverrideConfig = Routing::Fib::FibOverrideConfig;
   using FibOverrideVia = Routing::Fib::FibOverrideVia;
   using FibOverrideViaMatcher = Routing::Fib::FibOverrideViaMatcher;

   /// Not `noexcept`: so the set keeps each hash beside its element.
   struct ViaMatcherHash {
      std::size_t operator()( const FibOverrideViaMatcher & matcher ) const {
         return static_cast< std::uint32_t >( matcher.hash( 0 ) );
      }
   };

   /// The name of a manager that is given none.
   static constexpr std::string_view kDefaultMountPointName = "sdk";

   /// Registers with `mountMgr` under `mountPointName`, one step of a path. The state database must
   /// have a configuration at `getMountPath()` or keep the type of that path. Errors:
   /// `velo::mount_protocol_error` for a name that is taken, and the range error for one that is
   /// empty or has a slash in it.
   explicit fib_override_mgr( velo::mount_mgr * mountMgr,
                              const Lumo::String & mountPointName = kDefaultMountPointName );

   /// Writes nothing: the overrides stay.
   ~fib_override_mgr() override;

   /// "routing/rib/fibOverride/config" and the mount point's name.
   Lumo::String getMountPath() const;

   /// Asks for `getMountPath()` in the state database, by path alone.
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override;

   /// Takes the mounted configuration. If it is missing or of another type, `config` is null and
   /// nothing else may be called.
   void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) override;

   /// Adds the override, or replaces the one of the same matcher. Errors: the range error for what
   /// FibOverrideConfig refuses; during a resync it counts as sent nevertheless. O(1).
   void via_override_set( const FibOverrideVia & via );

   /// Nothing if there is none. O(1).
   void via_override_del( const FibOverrideViaMatcher & matcher );

   /// The UCMP weight of vias that have none, see FibOverrideVia; absent when it was never set.
   Quon::Optional< std::uint32_t > default_ucmp_weight() const;

   /// There is no way back to its absence.
   void default_ucmp_weight_set( std::uint32_t weight );

   /// From here on every via counts as not sent that is not set. In the middle of a resync it
   /// starts over.
   void via_override_resync_init();

   /// Removes all overrides that were not set since `via_override_resync_init`, or were deleted
   /// again. O(overrides).
   ///
   /// Errors: `velo::configuration_error` outside of a resync; nothing is changed. What is thrown
   /// by who watches the configuration passes through when all is done.
   void via_override_resync_complete();

   /// For those who look: the configuration; null before the mounts are complete.
   const Lumo::Ptr< FibOverrideConfig > & config() const { return config_; }

 private:
   // Released in reverse order.
   Lumo::Ptr< FibOverrideConfig > config_;
   bool resyncMode_ = false;
   std::unordered_set< FibOverrideViaMatcher, ViaMatcherHash > resyncSet_; ///< Set since it began.
};

} // namespace VeloSdkRpc
