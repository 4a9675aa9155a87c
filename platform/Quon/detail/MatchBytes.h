#pragma once

#include <cstdint>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Quon::detail {

/// Bit i set: the i-th of 16 bytes at `bytes` equals `wanted`.
inline std::uint64_t matchBytes16( const std::uint8_t * bytes, std::uint8_t wanted ) {
#if defined( __SSE2__ )
   const __m128i all = _mm_loadu_si128( reinterpret_cast< const __m128i * >( bytes ) );
   const __m128i same = _mm_cmpeq_epi8( all, _mm_set1_epi8( static_cast< char >( wanted ) ) );
   return static_cast< std::uint64_t >( _mm_movemask_epi8( same ) );
#else
   std::uint64_t found = 0;
   for ( unsigned i = 0; i < 16; ++i ) { found |= std::uint64_t{ bytes[i] == wanted } << i; }
   return found;
#endif
}

} // namespace Quon::detail
