/// The command line of veloctl as a whole.

#pragma once

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Session.h"

#include <string>
#include <vector>

namespace VeloCtl {

/// Enters everything there is into `app`: what all subcommands share goes to `session`.
void describe( CLI::App & app, Session & session, Action & chosen );

/// Does what the command line says. Whatever goes wrong becomes one line on the session's standard
/// error and the exit code that is returned.
int runVeloctl( const std::vector< std::string > & arguments, const Streams & streams );

} // namespace VeloCtl
