#pragma once

/// Oru: cooperative tasks, their scheduler, its clock and slice policies.

#include "Oru/Clock.h"
#include "Oru/SlicePolicy.h"
#include "Oru/Task.h"
#include "Oru/TaskScheduler.h"
