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
///    classes.deleteIf( [&]( const auto & name ) { return !wanted.lookup( name ); } );
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
///            directory page or the elements of a leaf. Move-out is O(1), merging O(the smaller),
///            deleting a range O(deleted).
///
/// How it is built. The leading bits of the hash lead through a directory to a leaf, and in it to a
/// line that knows at most 16 elements:
///
///     hash 1011010...    leaf, up to 1024 elements              its room
///     directory page     slots 0 0 1 2                          ┌────┐
///     [00 01 10 11] ──►  line 0 │where│16 tags│16 places│ ──┬─► │ e0 │
///      │   └──┴─► leaf   line 1 │where│16 tags│16 places│ ──┤   │    │
///      └────────► leaf   line 2 │where│16 tags│16 places│ ──┘   │ e2 │ ...
///
/// - A full line divides by the next bit, which moves no element; a full leaf likewise, and half of
///   its elements move; the directory rewrites a few slots for it, or doubles one page. Nothing is
///   ever rehashed as a whole, so an event loop never stalls on growth.
/// - A look-up compares the 16 tags of a line, which is one cache line, and then one key. Lines lie
///   together, apart from the elements, so that what all look-ups share stays in the caches.
/// - A walk sorts each line's entries when it comes to it, without moving an element, and asks for
///   the memory of the leaf to come ahead.
/// - The elements of a leaf share one room. So the heap is asked, or given back to, once for
///   hundreds of changes. When an eighth of the room is in use, the elements move to a smaller one,
///   and small leaves become one: what is left after deletions is about as small as if it had never
///   been larger.
/// - More than 16 keys of one and the same hash go to a balanced tree by key.
/// - An empty collection is four words; a small one has one line, with as much room as its elements
///   need.
///
/// `DenseMap2018` is the sibling for numbers that are given out one after the other.
template< class Key, class Value = void, class Traits = KeyTraits< Key > >
class HashMap2018 : public detail::KeyedCollection< HashMap2018< Key, Value, Traits >,
                                                    detail::HashStore< Key, Value, Traits > > {};

} // namespace Quon
