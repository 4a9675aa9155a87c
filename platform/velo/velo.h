#pragma once

/// velo: the SDK's public layer.

#include "velo/intf_id.h"
#include "velo/mount_handler.h"
#include "velo/mount_mgr.h"
#include "velo/sdk_scoped_lock.h"
