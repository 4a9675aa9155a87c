#pragma once

#include <vector>

#include "Keldb/Mount.h"
#include "Lumo/Export.h"
#include "Lumo/Node.h"

namespace Keldb {

/// The mounts of the state database that are being asked for. Only records them: nothing is mounted
/// before the group is complete, which is the affair of whoever hands it out.
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT MountGroup final : public Lumo::Node {
 public:
   MountGroup();
   ~MountGroup() override;

   void doMount( const Mount & mount );

   /// A mount by path alone.
   void doMountPath( const Lumo::String & path );

   /// All of them, in the order in which they were asked for.
   const std::vector< Mount > & mounts() const { return mounts_; }

 private:
   std::vector< Mount > mounts_;
};

} // namespace Keldb
