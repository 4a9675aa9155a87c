// The `main` of every test program: GoogleTest's and GoogleMock's, and the seed of all hashing is
// told, so that whatever depends on the order of a collection can be run again. (RapidCheck tells
// its own seed, GoogleTest that of --gtest_shuffle.)

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "Lumo/Hash.h"

int main( int argc, char ** argv ) {
   testing::InitGoogleMock( &argc, argv );
   const std::string seed = fmt::format( "{:#x}", Lumo::processHashSeed() );
   std::printf( "Using VELO_HASH_SEED=%s\n", seed.c_str() );
   std::fflush( stdout );
   // Death tests that start the program anew see the same orders.
   ::setenv( "VELO_HASH_SEED", seed.c_str(), 1 );
   return RUN_ALL_TESTS();
}
