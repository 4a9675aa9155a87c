#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "Quon/KeyTraits.h"
#include "Quon/detail/Cursor.h"
#include "Quon/detail/Element.h"
#include "Quon/detail/HashDirectory.h"
#include "Quon/detail/HashSegment.h"
#include "Quon/detail/HashTree.h"

namespace Quon::detail {

/// Elements in the order of (hash, key): a directory over segments. See HashMap2018.h.
///
/// Knows nothing of versions and parked elements. `watchers` are the cursors to keep right while
/// elements move; the deeper parts of the changes are in HashStoreChanges.h, of walking in
/// HashStoreWalk.h.
template< class K, class V, class Traits >
class HashStore {
 public:
   using Key = K;
   using Value = V;
   using Node = Element< K, V, Traits >;
   static constexpr bool nodesAreCopies = false;
   using NodePtr = const Node *;
   using Where = Cursor< Node >;
   using Watchers = Where *;
   using Segment = HashSegment< Node >;
   using Tree = HashTree< Node, Traits >;
   class Remains;

   HashStore() = default;
   HashStore( HashStore && other ) noexcept
      : directory_( std::move( other.directory_ ) ), size_( std::exchange( other.size_, 0 ) ) {}
   HashStore & operator=( HashStore && other ) noexcept {
      std::swap( directory_, other.directory_ );
      std::swap( size_, other.size_ );
      return *this;
   }
   ~HashStore() {
      directory_.forEachLeaf( destroyLeaf );
      directory_.clear();
   }

   std::size_t size() const { return size_; }

   template< class A, class B >
   static bool isBefore( const A & a, const B & b ) {
      const std::uint64_t ha = hashOf( a );
      const std::uint64_t hb = hashOf( b );
      return ha != hb ? ha < hb : Traits::order( a, b ) < 0;
   }

   template< class P >
   NodePtr find( const P & probe ) const {
      return findMutable( probe );
   }
   template< class P >
   Node * findMutable( const P & probe ) const {
      const std::uint64_t hash = hashOf( probe );
      return findIn( directory_.leafOf( hash ), hash, probe );
   }

   /// Where an element is: its segment, or its tree.
   struct Place {
      Node * node = nullptr;
      std::uint64_t hash = 0;
      HashLeaf * leaf = nullptr;
      typename Tree::Elements::iterator inTree{};
      explicit operator bool() const { return node; }
   };
   template< class P >
   Place locate( const P & probe ) const {
      Place place;
      place.hash = hashOf( probe );
      place.leaf = directory_.leafOf( place.hash );
      if ( place.leaf->isTree ) [[unlikely]] {
         if ( treeOf( place.leaf )->hash == place.hash ) {
            auto & elements = treeOf( place.leaf )->elements;
            place.inTree = elements.find( probe );
            if ( place.inTree != elements.end() ) {
               place.node = &Tree::mutableElement( *place.inTree );
            }
         }
      } else {
         place.node = findIn( place.leaf, place.hash, probe );
      }
      return place;
   }
   static Node & at( const Place & place ) { return *place.node; }

   /// The element under `key`, and whether it is new: then it was made by `make()`, which may
   /// consume what `key` refers to.
   template< class Make >
   std::pair< Node *, bool > insert( const K & key, Watchers watchers, Make make ) {
      const Place place = locate( key );
      if ( place ) { return { place.node, false }; }
      if ( place.leaf->capacity == 0 || segmentOf( place.leaf )->isFull() ) {
         return { insertWithRoom( place.hash, watchers, make() ), true };
      }
      return { fillSlot( *segmentOf( place.leaf ), place.hash, watchers, make ), true };
   }

   void erase( const Place & place, Watchers watchers ) {
      if ( place.leaf->isTree ) {
         eraseFromTree( place, watchers );
         return;
      }
      Segment & segment = *segmentOf( place.leaf );
      std::destroy_at( place.node );
      dropSlot( segment, place.node );
      const unsigned left = segment.count;
      if ( asksNeighbour( left ) || isSparse( left, segment.capacity ) ) {
         tidy( place.hash, watchers );
      }
   }

   /// Takes out the elements from `from` and before `to` (or to either end). O(taken).
   Remains extract( const std::optional< K > & from, const std::optional< K > & to,
                    Watchers watchers );

   template< class F >
   void forEach( F f ) {
      directory_.forEachLeaf( [&f]( HashLeaf * leaf ) { eachIn( leaf, f ); } );
   }

   void first( Where & c ) const { enterFrom( c, 0 ); }
   template< class P >
   void notBefore( Where & c, const P & key ) const {
      seek< false >( c, key );
   }
   template< class P >
   void after( Where & c, const P & key ) const {
      seek< true >( c, key );
   }

   /// To the element after the one that `c` stands on, or stood on before it was deleted.
   void next( Where & c ) const {
      Segment & segment = *segmentOf( static_cast< HashLeaf * >( c.leaf ) );
      while ( ++c.at < static_cast< int >( segment.ordered ) ) {
         const unsigned slot = segment.order()[c.at];
         if ( segment.isLive( slot ) ) [[likely]] {
            c.node = segment.at( slot );
            prefetch( c );
            return;
         }
      }
      leaveLeaf( c, segment.depth, hashOf( c.node->fwkKey() ) );
   }

 private:
   /// Two neighbours become one when together they have no more than this.
   static constexpr unsigned kMergeMax = 12;
   /// Free slots in the halves of a divided segment, and in one that fills an empty place.
   static constexpr unsigned kHalfHeadroom = 4;
   static constexpr unsigned kFreshCapacity = 4;

   /// On the way down a segment asks its neighbour at these sizes only: asking costs a cache miss.
   static constexpr bool asksNeighbour( unsigned count ) { return count == 0 || count == 2; }
   static constexpr bool isSparse( unsigned count, unsigned capacity ) {
      return count * 8 <= capacity && count != 0;
   }

   template< class P >
   static std::uint64_t hashOf( const P & key ) {
      return Traits::hash( key, hashSeed() );
   }
   static Segment * segmentOf( HashLeaf * leaf ) { return static_cast< Segment * >( leaf ); }
   static Tree * treeOf( HashLeaf * leaf ) { return static_cast< Tree * >( leaf ); }
   static unsigned countOf( HashLeaf * leaf ) { return static_cast< unsigned >( leaf->count ); }

   template< class P >
   static Node * findIn( HashLeaf * leaf, std::uint64_t hash, const P & probe ) {
      Segment & segment = *segmentOf( leaf );
      const unsigned home = segment.homeOf( hash );
      if ( Node * const node = findInGroup( segment, home, hash, probe ) ) { return node; }
      if ( !segment.mayBeElsewhere( hash, home ) ) [[likely]] { return nullptr; }
      return findElsewhere( leaf, home, hash, probe );
   }
   template< class P >
   static Node * findInGroup( Segment & segment, unsigned group, std::uint64_t hash,
                              const P & probe ) {
      std::uint64_t rest = segment.candidates( hash, group );
      for ( ; rest != 0; rest &= rest - 1 ) {
         Node * const node =
            segment.at( 16 * group + static_cast< unsigned >( std::countr_zero( rest ) ) );
         if ( Traits::isEq( node->fwkKey(), probe ) ) [[likely]] { return node; }
      }
      return nullptr;
   }
   template< class P >
   [[gnu::noinline]] static Node * findElsewhere( HashLeaf * leaf, unsigned home,
                                                  std::uint64_t hash, const P & probe ) {
      if ( leaf->isTree ) {
         Tree & tree = *treeOf( leaf );
         if ( tree.hash != hash ) { return nullptr; }
         const auto at = tree.elements.find( probe );
         return at == tree.elements.end() ? nullptr : &Tree::mutableElement( *at );
      }
      for ( unsigned group = 0; group < leaf->groups; ++group ) {
         if ( group == home ) { continue; }
         if ( Node * const node = findInGroup( *segmentOf( leaf ), group, hash, probe ) ) {
            return node;
         }
      }
      return nullptr;
   }

   template< class Make >
   Node * fillSlot( Segment & segment, std::uint64_t hash, Watchers watchers, Make make ) {
      const unsigned slot = segment.freeSlot( hash );
      Node * const node = segment.at( slot );
      new ( node ) Node( make() ); // may throw: the slot does not count yet
      segment.addSlot( slot, hash );
      ++size_;
      forgetPlaces( &segment, watchers );
      return node;
   }
   void dropSlot( Segment & segment, const Node * node ) {
      segment.dropSlot( static_cast< unsigned >( node - segment.elements() ) );
      --size_;
   }

   static void forgetPlaces( HashLeaf * leaf, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->leaf == leaf ) { c->forgetPlace(); }
      }
   }
   template< class F >
   static void eachIn( HashLeaf * leaf, F & f ) {
      if ( leaf->isTree ) {
         for ( const Node & node : treeOf( leaf )->elements ) { f( Tree::mutableElement( node ) ); }
      } else {
         Segment & segment = *segmentOf( leaf );
         segment.eachLive( [&]( unsigned slot ) { f( *segment.at( slot ) ); } );
      }
   }
   static void destroyLeaf( HashLeaf * leaf ) {
      if ( leaf->isTree ) {
         delete treeOf( leaf );
      } else if ( leaf->capacity != 0 ) {
         segmentOf( leaf )->destroyElements();
         Segment::release( leaf );
      }
   }

   static void followNode( const Node & from, const Node & to, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->node == &from ) { c->node = &to; }
      }
   }

   // Changes of shape: HashStoreChanges.h
   Node * insertWithRoom( std::uint64_t hash, Watchers watchers, Node && fresh );
   Node * moveNode( Node & from, Segment & to, std::uint64_t hash, Watchers watchers );
   void resize( Segment & segment, std::uint64_t hash, unsigned capacity, Watchers watchers );
   void divide( HashLeaf * leaf, std::uint64_t hash, Watchers watchers );
   void bringHome( Segment & segment, const std::uint64_t * hashes, Watchers watchers );
   void divideOneSided( HashLeaf * leaf, std::uint64_t hash, bool one );
   void makeTree( Segment & segment, std::uint64_t hash, Watchers watchers );
   void eraseFromTree( const Place & place, Watchers watchers );
   void tidy( std::uint64_t hash, Watchers watchers );
   bool uniteWithBuddy( HashLeaf * leaf, std::uint64_t hash, Watchers watchers );
   void extractFrom( Segment & segment, const std::optional< K > & from,
                     const std::optional< K > & to, Remains & out, Watchers watchers );
   void extractFrom( Tree & tree, const std::optional< K > & from, const std::optional< K > & to,
                     Remains & out );

   // Walking: HashStoreWalk.h
   static void sort( Segment & segment );
   static bool nextHash( std::uint64_t & hash, unsigned depth );
   void standIn( Where & c, Segment & segment, unsigned position, std::uint64_t hash ) const;
   void enterFrom( Where & c, std::uint64_t hash ) const;
   void leaveLeaf( Where & c, unsigned depth, std::uint64_t hash ) const;
   template< bool behind, class P >
   void seek( Where & c, const P & key ) const;
   static void prefetch( const Where & c ) {
      __builtin_prefetch( c.ahead + 128 + static_cast< std::size_t >( c.at ) * sizeof( Node ) );
   }

   HashDirectory directory_;
   std::size_t size_ = 0;
};

} // namespace Quon::detail

#include "Quon/detail/HashStoreChanges.h"
#include "Quon/detail/HashStoreWalk.h"
