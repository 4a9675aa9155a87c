#include "Lumo/Hash.h"

#include <cstdlib>
#include <random>

namespace Lumo {
namespace {

std::uint64_t chooseSeed() {
   if ( const char * fixed = std::getenv( "VELO_HASH_SEED" ) ) {
      return std::strtoull( fixed, nullptr, 0 );
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
