#pragma once

#include <functional>

#include "Step.h"

namespace VeloSdkRpc::simulation {

/// A script as short and plain as can be that still `fails`: no step of it can be left out, and no
/// number made 0, without its success. `script` must fail. Asks O(n log n) times for most.
Script shrunk( Script script, const std::function< bool( const Script & ) > & fails );

} // namespace VeloSdkRpc::simulation
