#pragma once

/// Plink: values of the routing table that other agents see in shared memory.

#include "Plink/FecId.h"
