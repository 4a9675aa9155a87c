#pragma once

// What becomes of the iterators of a KeyedCollection that stand on elements which leave their
// place. Included by KeyedCollection.h only.

#include "Quon/detail/KeyedCollection.h"

namespace Quon::detail {

/// Gives `lost` to the iterators that stand on it. It is moved from.
template< class Self, class Store >
[[gnu::noinline]] void KeyedCollection< Self, Store >::park( Node & lost ) const {
   Iterator * first = nullptr;
   eachIterator( [&]( Iterator & i ) {
      if ( i.node != &lost ) { return; }
      if ( first ) {
         i.shareBlock( *first );
      } else {
         first = &i;
         i.emptyBlock().node.emplace( std::move( lost ) );
         i.standOnBlock();
      }
   } );
}

template< class Self, class Store >
void KeyedCollection< Self, Store >::parkIteratorsOfLostElements() const {
   eachIterator( [&]( Iterator & i ) {
      i.forgetPlace();
      if constexpr ( !nodesAreCopies ) {
         if ( i && !i.isParked() && store_.find( i.key() ) != i.node ) {
            park( const_cast< Node & >( *i.node ) );
         }
      }
   } );
}

/// Before elements (all, or one) leave for another owner: iterators on them keep a copy.
template< class Self, class Store >
void KeyedCollection< Self, Store >::leaveElements( const Node * only ) const {
   eachIterator( [only]( Iterator & i ) {
      if ( !only ) { i.forgetPlace(); }
      if ( nodesAreCopies || !i || i.isParked() || ( only && i.node != only ) ) { return; }
      auto & block = i.emptyBlock();
      if constexpr ( std::is_copy_constructible_v< Node > ) {
         block.node.emplace( *i.node );
      } else {
         block.key.emplace( i.key() );
         i.forgetPlace();
      }
      i.standOnBlock();
   } );
}

template< class Self, class Store >
void KeyedCollection< Self, Store >::movedTo( const Node & from, const Node & to ) const {
   eachIterator( [&]( Iterator & i ) {
      if ( i.node == &from ) { i.node = &to; }
   } );
}

} // namespace Quon::detail
