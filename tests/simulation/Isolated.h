#pragma once

#include <functional>
#include <string>

namespace VeloSdkRpc::simulation {

/// Does `work` in a process of its own and returns how it failed: with what it returned or threw,
/// or because it crashed or did not end in `seconds`. Empty: it did not. What it changes is lost.
std::string failureOf( const std::function< std::string() > & work, unsigned seconds );

} // namespace VeloSdkRpc::simulation
