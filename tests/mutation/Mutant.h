/// Included by force into every file of a mutated build: which mutant is chosen, and which of them
/// a run has reached. The environment says so, so that a build holds all mutants at once:
///
///    VELO_MUTANT           the number of the one that is chosen; none: the code is as it was
///    VELO_MUTANTS_REACHED  where to append the numbers of those that were come by

#pragma once

#include <bitset>
#include <cstdio>
#include <cstdlib>

namespace mutation {

inline constexpr int kMost = 1 << 14;

/// Its only objects live as long as the program or the shared library that they are in.
class Choice {
 public:
   ~Choice() {
      const char * const path = std::getenv( "VELO_MUTANTS_REACHED" );
      std::FILE * const file = path ? std::fopen( path, "a" ) : nullptr;
      if ( !file ) { return; }
      for ( int id = 0; id < kMost; ++id ) {
         if ( reached_[static_cast< std::size_t >( id )] ) { std::fprintf( file, "%d\n", id ); }
      }
      std::fclose( file );
   }

   bool is( int id ) {
      reached_[static_cast< std::size_t >( id )] = true;
      return id == chosen_;
   }

 private:
   static int fromEnvironment() {
      const char * const number = std::getenv( "VELO_MUTANT" );
      return number ? std::atoi( number ) : -1;
   }

   const int chosen_ = fromEnvironment();
   std::bitset< kMost > reached_;
};

inline Choice choice;

} // namespace mutation

#define VELO_MUTANT( id ) ::mutation::choice.is( id )
