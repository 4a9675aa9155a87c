#pragma once

/// QuonSharedMem: shared-memory entities as their readers see them: mount requests, the entities
/// mounted, and when they may be read.

#include "QuonSharedMem/EntityManager.h"
#include "QuonSharedMem/MountGroup.h"
