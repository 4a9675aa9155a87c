/// Files that people name on the command line.

#pragma once

#include <string>

namespace VeloCtl {

/// All of the file at `path`; "-" is standard input. Throws WrongUse, with the system's reason.
std::string contentOf( const std::string & path );

} // namespace VeloCtl
