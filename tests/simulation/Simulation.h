#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "World.h"

namespace VeloSdkRpc::simulation {

/// A script that fails, and how.
struct Failure {
   std::string what;
   Script script;
};

/// How a script fails; empty if it does not.
std::string failureOf( const Script & script, Mistake mistake );

/// What came of many scripts.
struct Simulated {
   Happenings happenings;
   std::optional< Failure > failure; ///< The first, shrunk.
};

/// Plays scripts of one seed until `steps` steps are done, most of `perScript` steps. All in
/// processes of their own: a crash is a failure as others are.
Simulated simulated( std::uint64_t seed, std::uint64_t steps, std::size_t perScript,
                     Mistake mistake = Mistake::none );

} // namespace VeloSdkRpc::simulation
