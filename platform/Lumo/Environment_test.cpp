// The environment variables, each seen by a fresh process: this program again, running the one test
// that prints what it found.

#include <array>
#include <cstdio>
#include <string>

#include <unistd.h>

#include <gmock/gmock.h>

#include "Lumo/CapturingTraceSink.h"
#include "Lumo/Hash.h"
#include "Lumo/String.h"
#include "Lumo/Trace.h"

namespace Lumo {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST( Child, DISABLED_PrintsWhatItFound ) {
   std::printf( "seed %#llx\n", static_cast< unsigned long long >( processHashSeed() ) );
   std::printf( "short %#llx long %#llx\n",
                static_cast< unsigned long long >( String( "short" ).hash() ),
                static_cast< unsigned long long >( String( "not so short" ).hash() ) );
   for ( const char * name : { "A", "B", "Path/With/Slashes" } ) {
      std::printf( "%s %#x\n", name, Platform::getDebugHandler( name )->levels() );
   }
   std::printf( "Deaf %#x\n", Platform::getDebugHandler( "Deaf", false )->levels() );
   traceLevelsIs( "B", traceLevels( 1 ) );
   { const CapturingTraceSink traces; }
   std::printf( "afterwards A %#x B %#x C %#x\n", Platform::getDebugHandler( "A" )->levels(),
                Platform::getDebugHandler( "B" )->levels(),
                Platform::getDebugHandler( "C" )->levels() );
}

/// What the child prints, to standard output and standard error, with `setting` in its environment.
std::string childWith( const std::string & setting ) {
   std::array< char, 4096 > self{};
   if ( ::readlink( "/proc/self/exe", self.data(), self.size() - 1 ) < 0 ) { return "no /proc"; }
   const std::string command = "env -u VELO_TRACE -u VELO_HASH_SEED '" + setting + "' '" +
                               self.data() +
                               "' --gtest_also_run_disabled_tests --gtest_filter=Child.* 2>&1";
   std::string output;
   std::FILE * child = ::popen( command.c_str(), "r" );
   if ( !child ) { return "no child"; }
   for ( int c = std::fgetc( child ); c != EOF; c = std::fgetc( child ) ) {
      output += static_cast< char >( c );
   }
   EXPECT_EQ( ::pclose( child ), 0 ) << output;
   return output;
}

TEST( HashSeedEnvironmentTest, AFixedSeedMakesTwoProcessesHashAlike ) {
   const std::string first = childWith( "VELO_HASH_SEED=0x5eed" );
   EXPECT_THAT( first, HasSubstr( "seed 0x5eed\n" ) );
   const std::string hashes = first.substr( first.find( "short 0x" ) );
   const std::string line = hashes.substr( 0, hashes.find( '\n' ) );
   EXPECT_THAT( childWith( "VELO_HASH_SEED=24301" ), HasSubstr( line ) );
   EXPECT_THAT( childWith( "VELO_HASH_SEED=24302" ), Not( HasSubstr( line ) ) );
}

TEST( HashSeedEnvironmentTest, TheLargestSeedIsTaken ) {
   EXPECT_THAT( childWith( "VELO_HASH_SEED=0xffffffffffffffff" ),
                HasSubstr( "seed 0xffffffffffffffff\n" ) );
}

TEST( HashSeedEnvironmentTest, ASeedThatCannotBeReadIsTold ) {
   for ( const char * bad : { "", "x", "12x", "-1", " 1", "0x", "0x10000000000000000" } ) {
      EXPECT_THAT(
         childWith( std::string( "VELO_HASH_SEED=" ) + bad ),
         HasSubstr( std::string( "VELO_HASH_SEED: \"" ) + bad + "\" is not a number below 2^64" ) );
   }
}

TEST( TraceEnvironmentTest, ItemsSwitchLevelsByName ) {
   const std::string found = childWith( "VELO_TRACE=A/7-8,B/9,A/0,Path/With/Slashes/31" );
   EXPECT_THAT( found, HasSubstr( "A 0x181\nB 0x200\nPath/With/Slashes 0x80000000\n" ) );
   EXPECT_THAT( found, Not( HasSubstr( "ignored" ) ) );
}

TEST( TraceEnvironmentTest, TheStarIsForNamesWithoutAnItem ) {
   EXPECT_THAT( childWith( "VELO_TRACE=*/6,B/9" ),
                HasSubstr( "A 0x40\nB 0x200\nPath/With/Slashes 0x40\n" ) );
}

TEST( TraceEnvironmentTest, AHandleMayIgnoreIt ) {
   EXPECT_THAT( childWith( "VELO_TRACE=*/0-31" ), HasSubstr( "Deaf 0\n" ) );
}

TEST( TraceEnvironmentTest, TheApiWinsAndACaptureChangesNothingForLong ) {
   EXPECT_THAT( childWith( "VELO_TRACE=*/6" ), HasSubstr( "afterwards A 0x40 B 0x2 C 0x40\n" ) );
}

TEST( TraceEnvironmentTest, WhatCannotBeReadIsToldAndTheRestObeyed ) {
   for ( const char * bad : { "A", "A/", "A/x", "A/7-", "A/-7", "A/8-7", "A/32", "A/7-32", "A/7x",
                              "A/7-8x", "A/99999999999", "A/7-99999999999", "A/7--8", "/7" } ) {
      const std::string found = childWith( std::string( "VELO_TRACE=" ) + bad + ",B/9" );
      EXPECT_THAT( found, HasSubstr( std::string( "VELO_TRACE: \"" ) + bad +
                                     "\" is not NAME/LEVEL or NAME/FIRST-LAST with levels 0 to "
                                     "31; ignored\n" ) );
      EXPECT_THAT( found, HasSubstr( "A 0\nB 0x200\n" ) );
   }
}

} // namespace
} // namespace Lumo
