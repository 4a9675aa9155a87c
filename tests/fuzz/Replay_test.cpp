// Every target over its corpus: what once broke something does not break it again, with any
// compiler.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fuzz/Fuzz.h"

namespace Fuzz::test {
namespace {

namespace fs = std::filesystem;

std::vector< fs::path > sortedEntries( const fs::path & directory ) {
   std::vector< fs::path > entries;
   for ( const auto & entry : fs::directory_iterator( directory ) ) {
      entries.push_back( entry.path() );
   }
   std::sort( entries.begin(), entries.end() );
   return entries;
}

std::string contents( const fs::path & file ) {
   std::ifstream in( file, std::ios::binary );
   return { std::istreambuf_iterator< char >( in ), {} };
}

class Corpus : public testing::TestWithParam< const Target * > {};

TEST_P( Corpus, BreaksNothing ) {
   const std::vector< fs::path > files =
      sortedEntries( fs::path( VELO_FUZZ_CORPUS ) / GetParam()->name );
   EXPECT_FALSE( files.empty() );
   for ( const fs::path & file : files ) {
      // The last that is told is the one that crashes.
      std::printf( "%s/%s\n", GetParam()->name, file.filename().c_str() );
      std::fflush( stdout );
      // No byte behind it, not even a zero: reading too far is found by the address sanitizer.
      const std::string read = contents( file );
      const std::vector< char > input( read.begin(), read.end() );
      EXPECT_NO_THROW( GetParam()->run( { input.data(), input.size() } ) );
   }
}

INSTANTIATE_TEST_SUITE_P( Fuzz, Corpus, testing::ValuesIn( Target::all() ),
                          []( const auto & target ) { return std::string( target.param->name ); } );

} // namespace
} // namespace Fuzz::test
