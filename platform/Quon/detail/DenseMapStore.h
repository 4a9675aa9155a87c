#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "Quon/detail/DenseStore.h"
#include "Quon/detail/FewStore.h"

namespace Quon::detail {

/// The elements of a DenseMap2018: side by side while they are few, then in a tree until the last
/// one is gone.
///
/// A tree of a few scattered elements is little but paths: what arrives during a drain of a large
/// backlog would make and merge hundreds of blocks. So the tree begins when it pays.
template< std::unsigned_integral K, class V, class Traits >
class DenseMapStore {
   using Few = FewStore< K, V, Traits >;
   using Many = DenseStore< K, V, Traits >;

 public:
   using Key = K;
   using Value = V;
   using Node = typename Many::Node;
   static constexpr bool nodesAreCopies = false;
   using NodePtr = const Node *;
   using Where = Cursor< Node >;
   using Watchers = Where *;

   /// Elements that were taken out, to be destroyed later.
   class Remains {
    public:
      explicit Remains( Few few ) : few_( std::move( few ) ) {}
      explicit Remains( typename Many::Remains many ) : many_( std::move( many ) ) {}
      bool empty() const { return few_.size() == 0 && many_.empty(); }

    private:
      Few few_;
      typename Many::Remains many_;
   };

   std::size_t size() const { return few_.size() + many_.size(); }
   static bool isBefore( K a, K b ) { return a < b; }

   NodePtr find( K key ) const { return findMutable( key ); }
   Node * findMutable( K key ) const {
      return isTree() ? many_.findMutable( key ) : few_.find( key );
   }

   struct Place {
      Node * node = nullptr;
      K key = 0;
      explicit operator bool() const { return node; }
   };
   Place locate( K key ) const { return { findMutable( key ), key }; }
   static Node & at( const Place & place ) { return *place.node; }

   /// As in HashStore: `make` may consume what `key` refers to.
   template< class Make >
   std::pair< Node *, bool > insert( K key, Watchers watchers, Make make ) {
      if ( isTree() ) { return many_.insert( key, watchers, make ); }
      if ( Node * const present = few_.find( key ) ) { return { present, false }; }
      if ( !few_.isFull() ) { return { few_.add( watchers, make ), true }; }
      Node fresh = make(); // may refer to an element that is about to move
      plant( watchers );
      return many_.insert( key, watchers, [&fresh] { return std::move( fresh ); } );
   }

   void erase( const Place & place, Watchers watchers ) {
      if ( isTree() ) {
         many_.erase( { place.node, place.key, {} }, watchers );
      } else {
         few_.erase( place.node, watchers );
      }
   }

   /// The same, but the element lives on, in raw memory at `to`.
   void takeOut( const Place & place, Node * to, Watchers watchers ) {
      new ( to ) Node( std::move( *place.node ) );
      erase( place, watchers );
   }

   Remains extract( const std::optional< K > & from, const std::optional< K > & to,
                    Watchers watchers ) {
      if ( isTree() ) { return Remains( many_.extract( from, to, watchers ) ); }
      Few gone;
      few_.extract( gone, watchers,
                    [&]( K key ) { return ( !from || *from <= key ) && ( !to || key < *to ); } );
      return Remains( std::move( gone ) );
   }

   template< class F >
   void forEach( F f ) {
      isTree() ? many_.forEach( f ) : few_.forEach( f );
   }

   void first( Where & c ) const { notBefore( c, 0 ); }
   void notBefore( Where & c, K key ) const {
      if ( isTree() ) {
         many_.notBefore( c, key );
      } else {
         c.leaf = nullptr; // There is no faster way to the next one than by the key.
         c.node = few_.notBefore( key );
      }
   }
   void after( Where & c, K key ) const {
      if ( isTree() ) {
         many_.after( c, key );
      } else {
         c.leaf = nullptr;
         c.node = key == static_cast< K >( ~K{ 0 } )
                     ? nullptr
                     : few_.notBefore( static_cast< K >( key + 1 ) );
      }
   }
   /// (Cursors on the few have no leaf and come to `after`.)
   void next( Where & c ) const { many_.next( c ); }

 private:
   bool isTree() const { return many_.size() != 0; }

   /// Moves the few into the tree.
   void plant( Watchers watchers ) {
      Few few = std::move( few_ );
      few.forEach( [&]( Node & node ) {
         Node * const planted =
            many_.insert( node.fwkKey(), watchers, [&node] { return std::move( node ); } ).first;
         followMoved( watchers, &node, 1, planted );
      } );
   }

   // One of them is empty.
   Few few_;
   Many many_;
};

} // namespace Quon::detail
