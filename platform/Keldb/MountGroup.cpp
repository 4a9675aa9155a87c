#include "Keldb/MountGroup.h"

namespace Keldb {

MountGroup::MountGroup() = default;

MountGroup::~MountGroup() = default;

void MountGroup::doMount( const Mount & mount ) { mounts_.push_back( mount ); }

void MountGroup::doMountPath( const Lumo::String & path ) { mounts_.emplace_back( path ); }

} // namespace Keldb
