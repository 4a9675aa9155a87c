#pragma once

#include <vector>

#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/String.h"

namespace QuonSharedMem {

/// How a shared-memory entity is mounted. This process only ever reads what others write.
struct MountInfo {
   bool reader = false;

   static MountInfo forReader() { return { true }; }
};

/// The shared-memory mounts that are being asked for. Only records them: nothing is mounted before
/// the group is complete, which is the affair of whoever hands it out.
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT MountGroup final : public Lumo::Node {
 public:
   /// One request, as it was made.
   struct Mount {
      Lumo::String path;
      Lumo::String entityType;
      MountInfo info;
   };

   MountGroup();
   ~MountGroup() override;

   void doMount( const Lumo::String & path, const Lumo::String & entityType, MountInfo info );

   /// All of them, in the order in which they were asked for.
   const std::vector< Mount > & mounts() const { return mounts_; }

 private:
   std::vector< Mount > mounts_;
};

} // namespace QuonSharedMem
