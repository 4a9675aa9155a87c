#pragma once

#include "Lumo/Export.h"
#include "Quon/EntitiesByPath.h"

namespace Keldb {

/// The mounted entities of the state database, by path.
class VELO_PLATFORM_EXPORT EntityManager final : public Quon::EntitiesByPath {};

} // namespace Keldb
