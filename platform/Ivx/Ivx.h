#pragma once

/// Ivx: what the generated reactive state machines are built on.

#include "Ivx/InputStateMachine.h"
#include "Ivx/SmControl.h"
