#pragma once

#include "Quon/KeyTraits.h"
#include "Quon/detail/HashStore.h"
#include "Quon/detail/KeyedCollection.h"

namespace Quon {

/// The keyed collection of entities: `Value` by `Key`, or a set of keys with `Value = void`.
///
///    HashMap2018< Lumo::String, Lumo::Ptr< CountersData > > classes;
///    classes.memberIs( name, data );                      // insert, or replace the value
///    if ( const auto * node = classes.lookup( name ) ) { use( node->value() ); }
///    for ( auto i = classes.iterator(); i; i.advance() ) { classes.deleteMember( i.key() ); }
///
/// Order      (seeded 64-bit hash of the key, then the key): the place of a key is a function of
///            the key alone, whether it is present, deleted or yet to come. So a key is a complete
///            resume point, a pass that is interrupted visits nothing twice and misses nothing that
///            was there throughout, and ranges can be deleted at keys that do not exist.
/// Owner      whoever declares it; elements belong to it. Movable, not copyable.
/// Thread     event loop only (checked in debug builds)
/// Re-entry   destructors of keys and values may use the collection in any way: every change is
///            complete before anything dies
/// Pointers   a `Node *` is good until the next insertion or deletion
/// Iterators  `iterator()` survives every change, deletion of its element and of the collection
///            included; `checkedIterator()` and range-for assert that nothing changed
/// Cost       every operation on one element is O(1) and bounded: no step copies more than a
///            directory page or a segment. Move-out is O(1), merging O(the smaller), deleting a
///            range O(deleted).
///
/// How it is built. The leading bits of the hash lead through a directory to a segment of at most
/// 48 elements:
///
///     hash 10110...                     one cache line                    elements, unsorted
///     directory page                    ┌───────────────────────────┐    ┌────┬────┬────┬───
///     [00 01 10 11] ── 10 ──► segment:  │live│depth│... 16+16+16 tags│ ── │ e0 │ e1 │    │ e3
///      │   └──┴─► one segment for 0x    └───────────────────────────┘    └────┴────┴────┴───
///      └────────► (fills both slots)     order list, written when a walk enters: 3 0 1
///
/// - A full segment divides by the next bit; the directory rewrites a few slots for it, or doubles
///   one page. Nothing is ever rehashed as a whole, so an event loop never stalls on growth.
/// - A look-up compares 16 tags at once and then, as a rule, one key.
/// - A walk sorts each segment when it comes to it, without moving an element, and asks for the
/// next
///   segment's memory ahead.
/// - Emptied segments are given back, small neighbours become one, sparse ones shrink: what is left
///   after deletions is about as small as if it had never been larger.
/// - More than 48 keys of one and the same hash go to a balanced tree by key.
/// - An empty collection is four words; small ones have one segment as large as their elements.
///
/// `DenseMap2018` is the sibling for numbers that are given out one after the other.
template< class Key, class Value = void, class Traits = KeyTraits< Key > >
class HashMap2018 : public detail::KeyedCollection< HashMap2018< Key, Value, Traits >,
                                                    detail::HashStore< Key, Value, Traits > > {};

} // namespace Quon
