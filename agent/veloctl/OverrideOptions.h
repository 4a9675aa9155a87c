/// An override, and what it is known by, as options of a command.

#pragma once

#include "agent/veloctl/Configured.h"
#include "agent/veloctl/Overrides.h"

#include <CLI/App.hpp>
#include <functional>
#include <string>

namespace VeloCtl {

/// One override in options, or those of a file.
struct OverrideArguments {
   velo::rpc::v1::FibOverride item;
   std::string file;

   /// Throws WrongUse unless it is exactly one of the two.
   Items< Overrides > items() const;
};

/// `matcher()` is what they state; asked for when one of them is given.
void addMatcherOptions( CLI::App & command,
                        std::function< velo::rpc::v1::FibOverrideMatcher &() > matcher );
/// `arguments` lives as long as `command`.
void addOverrideOptions( CLI::App & command, OverrideArguments & arguments );

} // namespace VeloCtl
