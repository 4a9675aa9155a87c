#pragma once

/// Keldb: the state database as its users see it: mount requests and the entities mounted.

#include "Keldb/EntityManager.h"
#include "Keldb/Mount.h"
#include "Keldb/MountGroup.h"
