#pragma once

#include <cstdint>

/// Where an iterator stands: what a store needs to know to step on, and to keep the place right
/// while elements move.
///
/// A cursor that is registered with its collection is told of every change:
///  - `node` follows the element when a store moves it;
///  - `leaf` and `at` (the fast way to the next element) are forgotten when the order inside that
///    leaf changes; the next step then finds its place by the key.
/// An unregistered cursor is only used while its collection's version stays what it was.
namespace Quon::detail {

template< class Node >
struct Cursor {
   const Node * node = nullptr; ///< The element stood on; null at the end.
   void * leaf = nullptr;       ///< The store's leaf that holds it; null when to be found again.
   void * home = nullptr;       ///< What holds that leaf, if the store has use for it.
   int at = 0;                  ///< Position in the leaf's order.
   std::uintptr_t ahead = 0;    ///< Memory of a leaf to come, to be asked for early. May dangle.
   Cursor * nextRegistered = nullptr;

   void forgetPlace() { leaf = nullptr; }
};

/// `count` elements moved from `first` on to `to` on: the cursors on them go with them.
template< class Node >
void followMoved( Cursor< Node > * watchers, const Node * first, unsigned count, const Node * to ) {
   for ( auto * c = watchers; c; c = c->nextRegistered ) {
      if ( first <= c->node && c->node < first + count ) { c->node = to + ( c->node - first ); }
   }
}

} // namespace Quon::detail
