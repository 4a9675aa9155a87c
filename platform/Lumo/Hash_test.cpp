#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Hash.h"
#include "Lumo/String.h"

namespace Lumo {
namespace {

constexpr std::uint64_t kSeed = 0x1234'5678'9abc'def0;

std::uint64_t hashOf( std::string_view text, std::uint64_t seed = kSeed ) {
   return Impl::hashBytes( text.data(), text.size(), seed );
}

/// Names as they come: long common prefixes, counters at the end, all sizes up to 30 and a bit.
std::vector< std::string > names( std::size_t count ) {
   std::vector< std::string > result;
   for ( std::size_t i = 0; result.size() < count; ++i ) {
      result.push_back( std::to_string( i ) );
      result.push_back( "class-" + std::to_string( i ) );
      result.push_back( "policy-map/edge/class-map-" + std::to_string( i ) );
   }
   return result;
}

TEST( HashTest, NothingHasAHashWhereverItIs ) {
   EXPECT_EQ( Impl::hashBytes( nullptr, 0, kSeed ), hashOf( "" ) );
}

TEST( HashTest, TheSameBytesHashAlikeAtAnyAddress ) {
   std::array< char, 80 > memory;
   for ( std::size_t size = 0; size <= 40; ++size ) {
      const std::string text( size, 'x' );
      for ( std::size_t offset = 0; offset < 8; ++offset ) {
         memory.fill( static_cast< char >( offset ) );
         std::memcpy( &memory[offset], text.data(), size );
         EXPECT_EQ( Impl::hashBytes( &memory[offset], size, kSeed ), hashOf( text ) );
      }
   }
}

TEST( HashTest, EveryBitOfTheTextMatters ) {
   for ( std::size_t size = 1; size <= 24; ++size ) {
      std::string text( size, 'a' );
      std::unordered_set< std::uint64_t > seen = { hashOf( text ) };
      for ( std::size_t bit = 0; bit < size * 8; ++bit ) {
         text[bit / 8] = static_cast< char >( text[bit / 8] ^ ( 1 << bit % 8 ) );
         ASSERT_TRUE( seen.insert( hashOf( text ) ).second ) << "bit " << bit << " of " << size;
         text[bit / 8] = static_cast< char >( text[bit / 8] ^ ( 1 << bit % 8 ) );
      }
   }
}

TEST( HashTest, EveryBitOfTheSeedMatters ) {
   for ( std::size_t size = 0; size <= 24; ++size ) {
      const std::string text( size, 'a' );
      std::unordered_set< std::uint64_t > seen = { hashOf( text ) };
      for ( int bit = 0; bit < 64; ++bit ) {
         const std::uint64_t seed = kSeed ^ ( std::uint64_t{ 1 } << bit );
         ASSERT_TRUE( seen.insert( hashOf( text, seed ) ).second ) << "bit " << bit;
      }
   }
}

TEST( HashTest, ZeroBytesMatterToo ) {
   std::unordered_set< std::uint64_t > seen;
   for ( std::size_t size = 0; size <= 32; ++size ) {
      EXPECT_TRUE( seen.insert( hashOf( std::string( size, '\0' ) ) ).second );
   }
}

/// How far `hashes` are from falling evenly into 256 boxes by `box`: a normal variable of mean 0
/// and variance 1, if they do.
template< class Box >
double unevenness( const std::vector< std::uint64_t > & hashes, Box box ) {
   std::array< double, 256 > boxes{};
   for ( const std::uint64_t hash : hashes ) { ++boxes[box( hash )]; }
   const double expected = static_cast< double >( hashes.size() ) / 256;
   double chiSquare = 0;
   for ( const double count : boxes ) {
      chiSquare += ( count - expected ) * ( count - expected ) / expected;
   }
   return ( chiSquare - 255 ) / std::sqrt( 2.0 * 255 );
}

TEST( HashTest, OrdinaryNamesSpreadEvenlyOverTopAndLowBits ) {
   std::vector< std::uint64_t > hashes;
   for ( const std::string & name : names( 60000 ) ) { hashes.push_back( hashOf( name ) ); }
   EXPECT_LT( unevenness( hashes, []( std::uint64_t hash ) { return hash >> 56; } ), 6 );
   EXPECT_LT( unevenness( hashes, []( std::uint64_t hash ) { return hash & 0xff; } ), 6 );
}

TEST( HashTest, OrdinaryNamesDoNotCollide ) {
   std::unordered_set< std::uint64_t > bytes, strings;
   const auto all = names( 60000 );
   for ( const std::string & name : all ) {
      bytes.insert( hashOf( name ) );
      strings.insert( String( name ).hash() );
   }
   EXPECT_EQ( bytes.size(), all.size() );
   EXPECT_EQ( strings.size(), all.size() );
}

TEST( HashTest, StringsThatWereMadeInDifferentWaysHashAlike ) {
   for ( const std::string & name : names( 300 ) ) {
      const std::size_t half = name.size() / 2;
      EXPECT_EQ( String( name ).hash(),
                 ( String( name.substr( 0, half ) ) + String( name.substr( half ) ) ).hash() );
   }
}

TEST( HashTest, TheProcessSeedNeverChanges ) { EXPECT_EQ( processHashSeed(), processHashSeed() ); }

} // namespace
} // namespace Lumo
