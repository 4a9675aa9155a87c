#pragma once

/// velo: the SDK's public layer.

#include "velo/sdk_scoped_lock.h"
