#include "Lumo/Hash.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string_view>

namespace Lumo {
namespace {

std::optional< std::uint64_t > seedFrom( std::string_view text ) {
   const bool hexadecimal = text.starts_with( "0x" );
   if ( hexadecimal ) { text.remove_prefix( 2 ); }
   const char * end = text.data() + text.size();
   std::uint64_t seed = 0;
   const auto [at, error] = std::from_chars( text.data(), end, seed, hexadecimal ? 16 : 10 );
   if ( error != std::errc() || at != end ) { return std::nullopt; }
   return seed;
}

std::uint64_t chooseSeed() {
   if ( const char * text = std::getenv( "VELO_HASH_SEED" ) ) {
      if ( const auto fixed = seedFrom( text ) ) { return *fixed; }
      std::fprintf( stderr,
                    "VELO_HASH_SEED: \"%s\" is not a number below 2^64, decimal or 0x...; the "
                    "seed is random\n",
                    text );
   }
   std::random_device device;
   return ( std::uint64_t{ device() } << 32 ) | device();
}

} // namespace

std::uint64_t processHashSeed() {
   static const std::uint64_t seed = chooseSeed();
   return seed;
}

} // namespace Lumo
