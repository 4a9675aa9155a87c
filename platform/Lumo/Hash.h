#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Lumo/Export.h"

namespace Lumo {

/// The seed that this process mixes into every hash: random, or the number in the environment
/// variable VELO_HASH_SEED (decimal or 0x...), which makes every iteration order repeatable. Never
/// changes. Any thread.
VELO_PLATFORM_EXPORT std::uint64_t processHashSeed();

namespace Impl {

/// Folds the 128-bit product of two words: the mixing step of the multiply-fold hash family.
inline std::uint64_t foldedMultiply( std::uint64_t a, std::uint64_t b ) {
   __extension__ using Wide = unsigned __int128;
   const Wide product = static_cast< Wide >( a ) * b;
   return static_cast< std::uint64_t >( product ) ^ static_cast< std::uint64_t >( product >> 64 );
}

/// 64-bit hash of `size` bytes; `bytes` may be null when there are none. O(size), no alignment
/// needed.
inline std::uint64_t hashBytes( const void * bytes, std::size_t size, std::uint64_t seed ) {
   constexpr std::uint64_t k0 = 0x9e3779b97f4a7c15, k1 = 0xd6e8feb86659fd93;
   const auto * at = static_cast< const unsigned char * >( bytes );
   std::uint64_t state = seed ^ foldedMultiply( size ^ k0, k1 );
   for ( ; size > 8; size -= 8, at += 8 ) {
      std::uint64_t word;
      std::memcpy( &word, at, 8 );
      state = foldedMultiply( state ^ word, k0 );
   }
   std::uint64_t word = 0;
   if ( size != 0 ) { std::memcpy( &word, at, size ); }
   return foldedMultiply( state ^ word ^ k1, k0 ^ state );
}

} // namespace Impl
} // namespace Lumo
