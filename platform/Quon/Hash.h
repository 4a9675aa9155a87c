#pragma once

#include "Lumo/Export.h"

#include <cstdint>

/// Seeded 64-bit hashing for the keyed collections.
///
/// The seed is the process's own (`Lumo::processHashSeed`), kept here in a plain word so that a
/// look-up reads it with one load. It is set before ordinary static objects, some of which are
/// collections, are constructed. The environment variable VELO_HASH_SEED fixes it for a whole
/// process, strings included; `hashSeedIs` replaces it for the keys that are hashed here, and only
/// while no collection holds an element: a collection is ordered by its hashes, so a seed that
/// changes under it would lose its elements.
namespace Quon {

namespace Impl {
/// One word for the whole process, whichever shared objects use it.
VELO_PLATFORM_EXPORT extern std::uint64_t processHashSeed;
} // namespace Impl

inline std::uint64_t hashSeed() { return Impl::processHashSeed; }
inline void hashSeedIs( std::uint64_t seed ) { Impl::processHashSeed = seed; }

/// A bijection of the 64-bit numbers: different inputs never collide, and every input bit reaches
/// the top bits (which choose a collection's line) and the low bits (which make its tag).
inline std::uint64_t mix64( std::uint64_t x ) {
   x ^= x >> 32;
   x *= 0xe9846af9b1a615dULL;
   x ^= x >> 32;
   x *= 0xe9846af9b1a615dULL;
   x ^= x >> 28;
   return x;
}

} // namespace Quon
