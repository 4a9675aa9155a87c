/// A configuration file: the options of the command line, one a line.
///
///    # a comment, also behind a value
///    listen = unix:/run/velo-agent/agent.sock
///    source = nftables
///    table  = "inet/my filter"      # \" and \\ inside of quotes
///
/// A name is that of the option without its dashes.

#pragma once

#include <istream>
#include <string>
#include <vector>

namespace VeloAgent {

struct Setting {
   std::string name;
   std::string value;
   /// Where it stands: FILE:LINE.
   std::string where;

   bool operator==( const Setting & ) const = default;
};

/// What stands in `in`, in order; `file` is its name. Throws OptionsError with a text that names
/// file and line: for a line that is none of the above, and for a name that is there twice.
std::vector< Setting > settingsFrom( std::istream & in, const std::string & file );

} // namespace VeloAgent
