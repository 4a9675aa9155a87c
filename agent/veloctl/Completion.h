/// veloctl completion bash: what the shell needs to complete our command lines, told by the command
/// line itself, so that the two cannot disagree. Not listed by --help; for whoever installs.

#pragma once

#include <CLI/App.hpp>
#include <string>

namespace VeloCtl {

class Commands;

/// `veloctl` is the whole command line; outlives the command.
void addCompletion( Commands & commands, const CLI::App & veloctl );

std::string bashCompletion( const CLI::App & veloctl );

} // namespace VeloCtl
