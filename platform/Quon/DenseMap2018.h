#pragma once

#include <cstdint>

#include "Quon/KeyTraits.h"
#include "Quon/detail/DenseMapStore.h"
#include "Quon/detail/KeyedCollection.h"

namespace Quon {

/// The keyed collection for numbers that are given out one after the other, such as short keys.
///
/// Same interface and promises as `HashMap2018`, but in the order of the numbers themselves:
///
///    inner block (64 slots)          inner block         elements of 64 consecutive keys
///    [ 0 . 2 . . . ] ──────────────► [ 0 1 2 . ] ──────► mask 1011, | key 128 | 129 | 131 |
///
/// Every block has a mask of what is there and as much room as that takes, so dense keys cost
/// hardly more than their values and a lonely one (up to 2^64 - 1) a chain of ten tiny blocks at
/// most. A set keeps the masks alone: about an eighth of a byte per key. A collection with values
/// begins without a tree: up to 32 elements stand side by side.
///
/// Prefer `HashMap2018` where keys may be scattered all over the range.
///
/// A change touches the blocks on the way to one key, each of 64 slots at most. In a set an element
/// is found by value (`lookup` gives something like a pointer), and an iterator carries its key.
template< class Value = void, class Traits = KeyTraits< std::uint64_t > >
class DenseMap2018
   : public detail::KeyedCollection< DenseMap2018< Value, Traits >,
                                     detail::DenseMapStore< std::uint64_t, Value, Traits > > {};

template< class Traits >
class DenseMap2018< void, Traits >
   : public detail::KeyedCollection< DenseMap2018< void, Traits >,
                                     detail::DenseStore< std::uint64_t, void, Traits > > {};

} // namespace Quon
