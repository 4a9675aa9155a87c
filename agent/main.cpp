#include "agent/Agent.h"
#include "agent/Options.h"
#include "agent/Printable.h"
#include "agent/StopSignals.h"

#include <csignal>
#include <iostream>
#include <unistd.h>

namespace {

/// The one line that explains an exit code other than 0.
int complain( const std::exception & error, int exitCode ) {
   std::cerr << "velo-agent: " << VeloAgent::printable( error.what() ) << std::endl;
   return exitCode;
}

} // namespace

int main( int argc, char * argv[] ) try {
   const VeloAgent::Options options = VeloAgent::optionsFrom( { argv + 1, argv + argc } );
   if ( options.answer ) {
      std::cout << *options.answer;
      return 0;
   }
   // A reader that went away is then an error of write() like any other.
   std::signal( SIGPIPE, SIG_IGN );
   const VeloAgent::StopSignals stopSignals;
   VeloAgent::runAgent( options, stopSignals, STDOUT_FILENO );
   return 0;
} catch ( const VeloAgent::OptionsError & error ) {
   return complain( error, 2 );
} catch ( const std::exception & error ) { return complain( error, 1 ); }
