/// What is mounted: every mount that any handler asked for, and whether something is there.
///
/// Takes part in the mount protocol as the last handler, asks for nothing itself, and sees what
/// those before it asked for.
///
/// Owner      the managers
/// Thread     event loop only

#pragma once

#include "velo/velo.h"

#include <string>
#include <vector>

namespace VeloAgent {

enum class MountDatabase { state, sharedMemory };

struct MountReport {
   std::string path;
   std::string type;
   MountDatabase database = MountDatabase::state;
   bool present = false; ///< Something of that type is there.

   bool operator==( const MountReport & ) const = default;
};

class MountList final : public velo::mount_handler {
 public:
   /// Only handlers that registered before are seen.
   explicit MountList( velo::mount_mgr * mounts ) : velo::mount_handler( mounts ) {}

   /// As it is now; empty before the mounts are complete. O(mounts).
   std::vector< MountReport > reports() const;

 private:
   void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                  const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override;
   void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) override;

   std::vector< Keldb::Mount > mounts_;
   std::vector< QuonSharedMem::MountGroup::Mount > sharedMemMounts_;
   Lumo::Ptr< Keldb::EntityManager > entities_;
   Lumo::Ptr< QuonSharedMem::EntityManager > sharedMemEntities_;
};

} // namespace VeloAgent
