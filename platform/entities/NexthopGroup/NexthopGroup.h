#pragma once

/// NexthopGroup: the next-hop groups that are known by name.

#include "NexthopGroup/NexthopGroupId.h"
#include "NexthopGroup/NexthopGroupMap.h"
