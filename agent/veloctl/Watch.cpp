#include "agent/veloctl/Watch.h"

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/WatchMpls.h"
#include "agent/veloctl/WatchOptions.h"
#include "agent/veloctl/WatchPbr.h"

namespace VeloCtl {

void addWatchOptions( CLI::App & command, WatchOptions & options, const std::string & countHelp ) {
   addNumber( command, "--count", countHelp, 1, UINT64_MAX,
              [&options]( std::uint64_t n ) { options.count = n; } );
   addNumber( command, "--interval", "Time from one drawing of the live view to the next (1000)",
              100, 3'600'000,
              [&options]( std::uint64_t n ) { options.interval = std::chrono::milliseconds( n ); } )
      ->type_name( "MS" );
   command.add_flag( "--plain", options.plain, "Lines also on a terminal, no live view" );
   command.add_flag( "--no-retry", options.noRetry, "End when the connection breaks" );
}

void addWatch( Commands & commands ) {
   Commands watch = commands.group( "watch", "Follow a stream, until Ctrl-C" );
   addWatchPbr( watch );
   addWatchMpls( watch );
}

} // namespace VeloCtl
