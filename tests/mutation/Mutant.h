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

/// Its only objects live as long as the program or the shared library that they are in. What is
/// reached is told at once: a process that a test puts to death has no other time for it.
class Choice {
 public:
   bool is( int id ) {
      const auto bit = static_cast< std::size_t >( id );
      if ( path_ && !reached_[bit] ) {
         reached_[bit] = true;
         tell( id );
      }
      return id == chosen_;
   }

 private:
   void tell( int id ) const {
      if ( std::FILE * const file = std::fopen( path_, "a" ) ) {
         std::fprintf( file, "%d\n", id );
         std::fclose( file );
      }
   }
   static int fromEnvironment() {
      const char * const number = std::getenv( "VELO_MUTANT" );
      return number ? std::atoi( number ) : -1;
   }

   const int chosen_ = fromEnvironment();
   const char * const path_ = std::getenv( "VELO_MUTANTS_REACHED" );
   std::bitset< kMost > reached_;
};

inline Choice choice;

} // namespace mutation

#define VELO_MUTANT( id ) ::mutation::choice.is( id )
