#pragma once

/// Frell: images of values in shared memory.

#include "Frell/Access.h"
#include "Frell/Image.h"
#include "Frell/Manager.h"
