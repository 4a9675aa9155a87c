#include "agent/veloctl/CommandLine.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

int main( int argc, char * argv[] ) {
   // What the transport has to say for itself would come between our own lines.
   ::setenv( "GRPC_VERBOSITY", "NONE", 0 );
   std::ios::sync_with_stdio( false );
   return VeloCtl::runVeloctl( { argv + 1, argv + argc },
                               { .out = std::cout,
                                 .err = std::cerr,
                                 .outIsTerminal = ::isatty( STDOUT_FILENO ) == 1,
                                 .errIsTerminal = ::isatty( STDERR_FILENO ) == 1 } );
}
