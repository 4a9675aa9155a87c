#include "QuonSharedMem/MountGroup.h"

namespace QuonSharedMem {

MountGroup::MountGroup() = default;

MountGroup::~MountGroup() = default;

void MountGroup::doMount( const Lumo::String & path, const Lumo::String & entityType,
                          MountInfo info ) {
   mounts_.push_back( { path, entityType, info } );
}

} // namespace QuonSharedMem
