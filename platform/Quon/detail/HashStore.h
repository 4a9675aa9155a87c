#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Quon/KeyTraits.h"
#include "Quon/detail/Cursor.h"
#include "Quon/detail/Element.h"
#include "Quon/detail/HashDirectory.h"
#include "Quon/detail/HashLine.h"
#include "Quon/detail/HashTree.h"

namespace Quon::detail {

/// Elements in the order of (hash, key): a directory over lines of elements. See HashMap2018.h.
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
   using Line = HashLine;
   using Elements = HashElements< Node >;
   class Remains;
   using Tree = HashTree< Node, Traits >;

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
      return findIn( lineOf( hash ), hash, probe );
   }

   /// Where an element is, or would be.
   struct Place {
      Node * node;
      std::uint64_t hash;
      Line * line;
      typename Tree::Elements::iterator inTree{}; ///< If the line is a tree, and has it.
      explicit operator bool() const { return node; }
   };
   template< class P >
   Place locate( const P & probe ) const {
      const std::uint64_t hash = hashOf( probe );
      Line & line = lineOf( hash );
      Place place{ findIn( line, hash, probe ), hash, &line };
      if ( line.isTree && place ) [[unlikely]] {
         place.inTree = Tree::of( line ).elements.find( probe );
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
      if ( place.line->isFull() ) [[unlikely]] {
         return { insertWithRoom( place.hash, watchers, make() ), true };
      }
      return { fillSlot( *place.line, place.hash, watchers, make ), true };
   }

   void erase( const Place & place, Watchers watchers ) {
      Line & line = *place.line;
      if ( line.isTree ) [[unlikely]] {
         eraseFromTree( place, watchers );
         return;
      }
      std::destroy_at( place.node );
      line.dropSlot( Elements::slotOf( line, place.node ) );
      --size_;
      if ( isFew( line.count ) ) { tidy( place.hash, watchers ); }
   }

   /// Takes out the elements from `from` and before `to` (or to either end). O(taken).
   Remains extract( const std::optional< K > & from, const std::optional< K > & to,
                    Watchers watchers );

   template< class F >
   void forEach( F f ) {
      directory_.forEachLeaf( [&f]( HashLeaf * leaf ) {
         for ( unsigned i = 0; i < leaf->count; ++i ) { eachIn( leaf->lines[i], f ); }
      } );
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
      const Line & line = *static_cast< const Line * >( c.leaf );
      while ( ++c.at < static_cast< int >( line.ordered ) ) {
         const unsigned slot = Elements::order( line )[c.at];
         if ( line.isLive( slot ) ) [[likely]] {
            c.node = Elements::at( line, slot );
            prefetchAhead( c );
            return;
         }
      }
      leaveLine( c, line.depth, hashOf( c.node->fwkKey() ) );
   }

 private:
   /// Two lines that are halves of one become one when together they have no more than this.
   static constexpr unsigned kUniteMax = 14;
   /// So many elements in united lines are enough for one pass over a leaf.
   static constexpr unsigned kMaxWork = 96;
   /// Lines that are looked at once more when leaves have been united.
   static constexpr unsigned kSmallLeaf = 8;
   /// Room for elements in a line that comes to life among others.
   static constexpr unsigned kFreshCapacity = 4;

   /// How far ahead of a walk memory is asked for.
   static constexpr unsigned kLinesAhead = 3;

   /// On the way down a line tells its leaf when it has so few elements left.
   static constexpr bool isFew( unsigned count ) { return count == 4 || count == 0; }
   /// Whether so few elements should move to where there is less room.
   static constexpr bool isSparse( unsigned count, unsigned capacity ) {
      return count * 8 <= capacity && count != 0;
   }

   template< class P >
   static std::uint64_t hashOf( const P & key ) {
      return Traits::hash( key, hashSeed() );
   }
   /// Numbers stay in a register.
   template< class P >
   using Passed = std::conditional_t< Impl::NumberKey< P >, P, const P & >;

   Line & lineOf( std::uint64_t hash ) const { return directory_.leafOf( hash )->lineOf( hash ); }

   template< class P >
   static Node * findIn( const Line & line, std::uint64_t hash, const P & probe ) {
      for ( auto rest = line.candidates( hash ); rest != 0; rest &= rest - 1 ) {
         Node * const node =
            Elements::at( line, static_cast< std::size_t >( std::countr_zero( rest ) ) );
         if ( Traits::isEq( node->fwkKey(), probe ) ) [[likely]] { return node; }
      }
      return line.isTree ? findInTree< P >( Tree::of( line ), hash, probe ) : nullptr;
   }
   template< class P >
   [[gnu::noinline, gnu::cold]] static Node * findInTree( Tree & tree, std::uint64_t hash,
                                                          Passed< P > probe ) {
      if ( tree.hash != hash ) { return nullptr; }
      const auto at = tree.elements.find( probe );
      return at == tree.elements.end() ? nullptr : &Tree::mutableElement( *at );
   }

   template< class Make >
   Node * fillSlot( Line & line, std::uint64_t hash, Watchers watchers, Make make ) {
      const unsigned slot = line.freeSlot();
      Node * const node = new ( Elements::at( line, slot ) ) Node( make() ); // may throw:
      line.addSlot( slot, hash );                                            // not counted yet
      ++size_;
      forgetPlaces( line, watchers );
      return node;
   }

   static void forgetPlaces( const Line & line, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->leaf == &line ) { c->forgetPlace(); }
      }
   }
   static bool isEmpty( const Line & line ) {
      return line.isTree ? Tree::of( line ).elements.empty() : line.count == 0;
   }
   static bool isEmpty( const HashLeaf & leaf ) {
      return std::all_of( leaf.lines, leaf.lines + leaf.count,
                          []( const Line & line ) { return isEmpty( line ); } );
   }

   static void forgetPlaces( const HashLeaf & leaf, Watchers watchers ) {
      if ( !watchers ) { return; }
      for ( unsigned i = 0; i < leaf.count; ++i ) { forgetPlaces( leaf.lines[i], watchers ); }
   }
   template< class F >
   static void eachIn( Line & line, F & f ) {
      if ( line.isTree ) {
         for ( const Node & node : Tree::of( line ).elements ) {
            f( Tree::mutableElement( node ) );
         }
      } else {
         line.eachLive( [&]( unsigned slot ) { f( *Elements::at( line, slot ) ); } );
      }
   }
   static void destroyLine( Line & line ) {
      if ( line.isTree ) {
         delete &Tree::of( line );
         line.becomeNothing();
      } else if ( line.capacity != 0 ) {
         Elements::destroy( line );
      }
   }
   static void destroyLeaf( HashLeaf * leaf ) {
      for ( unsigned i = 0; i < leaf->count; ++i ) { destroyLine( leaf->lines[i] ); }
      HashLeaf::destroy( leaf );
   }

   static void followNode( const Node & from, const Node & to, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->node == &from ) { c->node = &to; }
      }
   }

   // Changes of shape: HashStoreChanges.h
   Node * insertWithRoom( std::uint64_t hash, Watchers watchers, Node && fresh );
   static void moveNode( Line & from, unsigned slot, Line & to, Watchers watchers );
   static void resize( Line & line, unsigned capacity, Watchers watchers );
   void replaceLeaf( std::uint64_t hash, HashLeaf::Ptr with, Watchers watchers );
   HashLeaf & leafWithRoom( std::uint64_t hash, Watchers watchers );
   void divideLeaf( HashLeaf & leaf, std::uint64_t hash, Watchers watchers );
   void divide( std::uint64_t hash, Watchers watchers );
   void makeTree( Line & line, std::uint64_t hash, Watchers watchers );
   void eraseFromTree( const Place & place, Watchers watchers );
   void tidy( std::uint64_t hash, Watchers watchers );
   void condense( std::uint64_t hash, Watchers watchers );
   static bool unite( Line & line, Line & buddy, Watchers watchers );
   bool uniteLeaves( std::uint64_t hash, Watchers watchers );
   void extractFrom( Line & line, const std::optional< K > & from, const std::optional< K > & to,
                     Remains & out, Watchers watchers );
   void extractFromTree( Tree & tree, const std::optional< K > & from,
                         const std::optional< K > & to, Remains & out );

   // Walking: HashStoreWalk.h
   static void sort( Line & line );
   static bool nextHash( std::uint64_t & hash, unsigned depth );
   void lookAhead( Where & c ) const;
   void standIn( Where & c, Line & line, unsigned position, std::uint64_t hash ) const;
   void enterFrom( Where & c, std::uint64_t hash ) const;
   void leaveLine( Where & c, unsigned depth, std::uint64_t hash ) const;
   template< bool behind, class P >
   void seek( Where & c, const P & key ) const;
   static void prefetch( std::uintptr_t at ) {
      __builtin_prefetch( reinterpret_cast< const void * >( at ) );
   }
   static void prefetchElements( const Line & line ) {
      line.eachLive( [&]( unsigned slot ) {
         prefetch( reinterpret_cast< std::uintptr_t >( line.elements ) + slot * sizeof( Node ) );
      } );
   }
   /// Two elements ahead for each one walked: few lines are less than half full.
   static void prefetchAhead( const Where & c ) {
      constexpr std::size_t kStep = 2 * sizeof( Node );
      const std::uintptr_t at = c.ahead + static_cast< std::size_t >( c.at ) * kStep;
      prefetch( at );
      if constexpr ( kStep > 64 ) { prefetch( at + kStep / 2 ); }
   }

   HashDirectory directory_;
   std::size_t size_ = 0;
};

} // namespace Quon::detail

#include "Quon/detail/HashStoreChanges.h"
#include "Quon/detail/HashStoreWalk.h"
