/// Plays the counters stream for a long time, with everything that can happen happening.
///
/// Usage: simulation [--seed N] [--steps N] | simulation --replay FILE
///
/// Everything follows from the seed (random if none is given) and is told when it fails, together
/// with the shortest script that fails alike. Such a script can be replayed.

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <string>

#include <unistd.h>

#include "Simulation.h"

namespace VeloSdkRpc::simulation {
namespace {

constexpr std::size_t kStepsPerScript = 200;
constexpr const char * kHashSeed = "VELO_HASH_SEED";

struct Options {
   std::uint64_t seed = std::random_device()();
   std::uint64_t steps = 100'000;
   std::string replay;
};

std::uint64_t number( const std::string & text ) {
   std::uint64_t value = 0;
   const auto [end, error] = std::from_chars( text.data(), text.data() + text.size(), value );
   if ( error != std::errc() || *end != 0 ) { throw std::runtime_error( "no number: " + text ); }
   return value;
}

Options parsed( int argc, char ** argv ) {
   Options options;
   for ( int n = 1; n < argc; n += 2 ) {
      const std::string option = argv[n];
      if ( n + 1 == argc ) { throw std::runtime_error( option + " of what?" ); }
      if ( option == "--seed" ) {
         options.seed = number( argv[n + 1] );
      } else if ( option == "--steps" ) {
         options.steps = number( argv[n + 1] );
      } else if ( option == "--replay" ) {
         options.replay = argv[n + 1];
      } else {
         throw std::runtime_error( "unknown option " + option );
      }
   }
   return options;
}

/// The order of collections depends on it: it must be there before anything is hashed.
void hashSeedIs( std::uint64_t seed, char ** argv ) {
   if ( std::getenv( kHashSeed ) ) { return; }
   ::setenv( kHashSeed, std::to_string( seed ).c_str(), 1 );
   const std::string again[] = { "--seed", std::to_string( seed ) };
   std::vector< char * > all;
   for ( ; *argv; ++argv ) { all.push_back( *argv ); }
   for ( const std::string & word : again ) {
      all.push_back( const_cast< char * >( word.c_str() ) );
   }
   all.push_back( nullptr );
   ::execv( "/proc/self/exe", all.data() );
   throw std::runtime_error( "cannot start anew" );
}

int replayed( const std::string & file ) {
   std::ifstream text( file );
   if ( !text ) { throw std::runtime_error( "cannot read " + file ); }
   const std::string what = failureOf( simulation::parsed( text ), Mistake::none );
   std::cout << ( what.empty() ? "it holds" : "FAILED: " + what ) << '\n';
   return what.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int simulatedAndTold( const Options & options ) {
   std::cout << "Using --seed " << options.seed << ' ' << kHashSeed << '='
             << std::getenv( kHashSeed ) << std::endl;
   const auto [all, failure] = simulated( options.seed, options.steps, kStepsPerScript );
   std::cout << all.steps << " steps, " << all.runs << " runs, " << all.records << " records, "
             << all.deedsInCalls << " deeds in calls, " << all.streams << " streams, "
             << all.verdicts << " verdicts\n";
   if ( !failure ) {
      std::cout << "all promises are kept\n";
      return EXIT_SUCCESS;
   }
   std::cout << "FAILED: " << failure->what << "\n# " << kHashSeed << '='
             << std::getenv( kHashSeed ) << ", to be replayed with --replay\n"
             << failure->script;
   return EXIT_FAILURE;
}

} // namespace
} // namespace VeloSdkRpc::simulation

int main( int argc, char ** argv ) {
   using namespace VeloSdkRpc::simulation;
   try {
      const Options options = parsed( argc, argv );
      hashSeedIs( options.seed, argv );
      return options.replay.empty() ? simulatedAndTold( options ) : replayed( options.replay );
   } catch ( const std::exception & what ) {
      std::cerr << "simulation: " << what.what() << '\n';
      return 2;
   }
}
