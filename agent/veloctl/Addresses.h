/// IP addresses and prefixes in the one form that the agent lists them in, however people write
/// them.

#pragma once

#include <string>

namespace VeloCtl {

/// "2001:DB8:0::1" -> "2001:db8::1". What is no address stays as it is: the agent will say so.
std::string normalAddress( const std::string & address );

/// The same of "ADDRESS/LENGTH", without the bits behind the prefix.
std::string normalPrefix( const std::string & prefix );

} // namespace VeloCtl
