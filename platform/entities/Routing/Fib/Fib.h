#pragma once

/// Routing::Fib: overrides of what the FIB forwards to.
///
///    FibOverrideConfig  --viaOverride[ FibOverrideViaMatcher ]-->  FibOverrideVia
///                       --ucmpWeightDefault-->  weight, or absent
///
///    FibOverrideVia     matcher: which vias are meant, in which routes
///                       weight, replacement: what becomes of them

#include "Routing/Fib/FibOverrideConfig.h"
#include "Routing/Fib/FibOverrideVia.h"
#include "Routing/Fib/FibOverrideViaMatcher.h"
#include "Routing/Fib/LabelStack.h"
#include "Routing/Fib/Via.h"
