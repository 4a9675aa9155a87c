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
#include "Quon/detail/HashElements.h"
#include "Quon/detail/HashTree.h"
#include "Quon/detail/Relocate.h"

namespace Quon::detail {

/// Elements in the order of (hash, key): a directory over lines of elements. See HashMap2018.h.
///
/// Knows nothing of versions and parked elements. `watchers` are the cursors to keep right while
/// elements move; the deeper parts of the changes are in HashStoreChanges.h and HashStoreExtract.h,
/// of walking in HashStoreWalk.h.
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
   /// Raw memory that nobody's elements are in yet, or any more.
   struct FreeRoom {
      void operator()( void * room ) const { Elements::release( room ); }
   };
   using Room = std::unique_ptr< void, FreeRoom >;
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
      unsigned entry;
      return findIn( directory_.leafOf( hash )->lineOf( hash ), hash, probe, entry );
   }

   /// Where an element is, or would be.
   struct Place {
      Node * node;
      std::uint64_t hash;
      HashLeaf * leaf;
      Line * line;
      unsigned entry = 0;                         ///< If the line is no tree, and has it.
      typename Tree::Elements::iterator inTree{}; ///< If the line is a tree, and has it.
      explicit operator bool() const { return node; }
   };
   template< class P >
   [[gnu::always_inline]] Place locate( const P & probe ) const {
      const std::uint64_t hash = hashOf( probe );
      HashLeaf & leaf = *directory_.leafOf( hash );
      Line & line = leaf.lineOf( hash );
      Place place{ nullptr, hash, &leaf, &line };
      place.node = findIn( line, hash, probe, place.entry );
      if ( line.state == Line::isTree && place ) [[unlikely]] {
         place.inTree = Tree::of( line ).elements.find( probe );
      }
      return place;
   }
   /// Where `c` stands, which knows its leaf, on an element that is there.
   Place placeAt( const Where & c ) const {
      HashLeaf & leaf = *static_cast< HashLeaf * >( c.home );
      // The hash is for tidying up only, which comes seldom.
      const std::uint64_t hash = leaf.size > leaf.few + 1 ? 0 : hashOf( c.node->fwkKey() );
      return { const_cast< Node * >( c.node ), hash, &leaf, static_cast< Line * >( c.leaf ),
               static_cast< unsigned >( c.at ) };
   }
   static Node & at( const Place & place ) { return *place.node; }

   /// The element under `key`, and whether it is new: then it was made by `make()`, which may
   /// consume what `key` refers to.
   template< class Make >
   std::pair< Node *, bool > insert( const K & key, Watchers watchers, Make make ) {
      const Place place = locate( key );
      if ( place ) { return { place.node, false }; }
      if ( place.line->isFull() || place.leaf->isFull() ) [[unlikely]] {
         return { insertWithRoom( place.hash, watchers, make() ), true };
      }
      return { fill( *place.leaf, *place.line, place.hash, watchers, make ), true };
   }

   void erase( const Place & place, Watchers watchers ) {
      if ( place.line->state == Line::isTree ) [[unlikely]] {
         eraseFromTree( place, watchers );
         return;
      }
      std::destroy_at( place.node );
      drop( *place.leaf, *place.line, place.entry );
      if ( place.leaf->size <= place.leaf->few ) [[unlikely]] { tidy( place.hash, watchers ); }
   }
   /// The same, but the element lives on, in raw memory at `to`.
   void takeOut( const Place & place, Node * to, Watchers watchers ) {
      if ( place.line->state == Line::isTree ) [[unlikely]] {
         new ( to ) Node( std::move( *place.node ) );
         eraseFromTree( place, watchers );
         return;
      }
      relocate( place.node, 1, to );
      drop( *place.leaf, *place.line, place.entry );
      if ( place.leaf->size <= place.leaf->few ) [[unlikely]] { tidy( place.hash, watchers ); }
   }

   /// Takes out the elements from `from` and before `to` (or to either end). O(taken).
   Remains extract( const std::optional< K > & from, const std::optional< K > & to,
                    Watchers watchers );
   /// Takes out the elements whose keys are `unwanted` of the leaf for `at`, any hash of it, which
   /// then is the first of the next leaf, or 0 if there is none.
   template< class Unwanted >
   Remains extractIf( std::uint64_t & at, const Unwanted & unwanted, Watchers watchers );

   template< class F >
   void forEach( F f ) {
      directory_.forEachLeaf( [&f]( HashLeaf * leaf ) {
         eachLine( *leaf, [&f]( Line & line ) { eachIn( line, f ); } );
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
      if ( const std::uint32_t rest = line.live & ~1u << c.at ) {
         c.at = std::countr_zero( rest );
         c.node = Elements::at( line, static_cast< unsigned >( c.at ) );
         prefetchAhead( c );
         return;
      }
      leaveLine( c, line.depth, hashOf( c.node->fwkKey() ) );
   }

 private:
   /// Two lines that are halves of one become one when together they have no more than this.
   static constexpr unsigned kUniteMax = 10;
   /// How far ahead memory is asked for when the elements of a leaf move.
   static constexpr unsigned kLinesAhead = 3;

   template< class P >
   static std::uint64_t hashOf( const P & key ) {
      return Traits::hash( key, hashSeed() );
   }
   /// Numbers stay in a register.
   template< class P >
   using Passed = std::conditional_t< Impl::NumberKey< P >, P, const P & >;

   Line & lineOf( std::uint64_t hash ) const { return directory_.leafOf( hash )->lineOf( hash ); }

   template< class P >
   [[gnu::always_inline]] static Node * findIn( const Line & line, std::uint64_t hash,
                                                const P & probe, unsigned & entry ) {
      for ( auto rest = line.candidates( hash ); rest != 0; rest &= rest - 1 ) {
         entry = static_cast< unsigned >( std::countr_zero( rest ) );
         Node * const node = Elements::at( line, entry );
         if ( Traits::isEq( node->fwkKey(), probe ) ) [[likely]] { return node; }
      }
      return line.state == Line::isTree ? findInTree< P >( Tree::of( line ), hash, probe )
                                        : nullptr;
   }
   template< class P >
   [[gnu::noinline, gnu::cold]] static Node * findInTree( Tree & tree, std::uint64_t hash,
                                                          Passed< P > probe ) {
      if ( tree.hash != hash ) { return nullptr; }
      const auto at = tree.elements.find( probe );
      return at == tree.elements.end() ? nullptr : &Tree::mutableElement( *at );
   }

   template< class Make >
   Node * fill( HashLeaf & leaf, Line & line, std::uint64_t hash, Watchers watchers, Make make ) {
      const unsigned place = Elements::takePlace( leaf );
      // If this throws, the place stays unused until the elements move.
      Node * const node = new ( Elements::inRoom( leaf.elements, place ) ) Node( make() );
      ++leaf.size;
      line.add( hash, place );
      ++size_;
      forgetPlaces( line, watchers );
      return node;
   }
   /// The element is gone already.
   void drop( HashLeaf & leaf, Line & line, unsigned entry ) {
      Elements::free( leaf, line.places[entry] );
      line.drop( entry );
      --size_;
   }

   template< class F >
   static void eachLine( HashLeaf & leaf, F f ) {
      for ( unsigned i = 0; i < leaf.count; ++i ) { f( leaf.lines[i] ); }
   }
   static void forgetPlaces( const Line & line, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->leaf == &line ) { c->forgetPlace(); }
      }
   }
   static void forgetPlaces( HashLeaf & leaf, Watchers watchers ) {
      if ( !watchers ) { return; }
      eachLine( leaf, [=]( const Line & line ) { forgetPlaces( line, watchers ); } );
   }
   template< class F >
   static void eachIn( Line & line, F & f ) {
      if ( line.state == Line::isTree ) {
         for ( const Node & node : Tree::of( line ).elements ) {
            f( Tree::mutableElement( node ) );
         }
      } else {
         line.eachLive( [&]( unsigned entry ) { f( *Elements::at( line, entry ) ); } );
      }
   }
   static void destroyLeaf( HashLeaf * leaf ) {
      eachLine( *leaf, []( Line & line ) {
         line.eachLive( [&]( unsigned entry ) { std::destroy_at( Elements::at( line, entry ) ); } );
         if ( line.state == Line::isTree ) { delete &Tree::of( line ); }
      } );
      Elements::release( leaf->elements );
      HashLeaf::destroy( leaf );
   }

   static void followNode( const Node & from, const Node & to, Watchers watchers ) {
      for ( Where * c = watchers; c; c = c->nextRegistered ) {
         if ( c->node == &from ) { c->node = &to; }
      }
   }

   // Changes of shape: HashStoreChanges.h
   Node * insertWithRoom( std::uint64_t hash, Watchers watchers, Node && fresh );
   static unsigned elementsIn( HashLeaf & leaf );
   static void gather( HashLeaf & leaf, Room room, unsigned capacity, Watchers watchers,
                       HashLeaf * from = nullptr );
   static void move( HashLeaf & leaf, unsigned wanted, Watchers watchers );
   void replaceLeaf( HashLeaf & leaf, std::uint64_t hash, HashLeaf::Ptr with, Watchers watchers );
   HashLeaf & leafWithRoom( std::uint64_t hash, Watchers watchers );
   void divideLeaf( HashLeaf & leaf, std::uint64_t hash, Watchers watchers );
   void divide( std::uint64_t hash, Watchers watchers );
   void makeTree( HashLeaf & leaf, Line & line, std::uint64_t hash, Watchers watchers );
   void eraseFromTree( const Place & place, Watchers watchers );
   void tidy( std::uint64_t hash, Watchers watchers );
   void condense( std::uint64_t hash, Watchers watchers );
   static bool unite( Line & line, Line & buddy );
   bool uniteLeaves( std::uint64_t hash, Watchers watchers );
   static void fellEmptyTree( HashLeaf & leaf, Line & line );

   // Taking out many: HashStoreExtract.h
   template< class Unwanted, class Take >
   void extractFrom( HashLeaf & leaf, Line & line, const Unwanted & unwanted, const Take & take,
                     Watchers watchers );
   void moveTo( Tree & tree, typename Tree::Elements & from, typename Tree::Elements::iterator at );
   void extractFromTree( Tree & tree, const std::optional< K > & from,
                         const std::optional< K > & to, Remains & out );

   // Walking: HashStoreWalk.h
   static void sort( Line & line );
   static bool nextHash( std::uint64_t & hash, unsigned depth );
   void lookAhead( Where & c, std::uint64_t hash ) const;
   void standIn( Where & c, HashLeaf & leaf, Line & line, unsigned entry,
                 std::uint64_t hash ) const;
   void enterFrom( Where & c, std::uint64_t hash ) const;
   void leaveLine( Where & c, unsigned depth, std::uint64_t hash ) const;
   template< bool behind, class P >
   void seek( Where & c, const P & key ) const;
   static void prefetch( std::uintptr_t at ) {
      __builtin_prefetch( reinterpret_cast< const void * >( at ) );
   }
   static void prefetchElements( const Line & line ) {
      line.eachLive( [&]( unsigned entry ) {
         prefetch( reinterpret_cast< std::uintptr_t >( Elements::at( line, entry ) ) );
      } );
   }
   /// Half an element more for each one walked: few rooms are less than two thirds full.
   static void prefetchAhead( Where & c ) {
      constexpr std::size_t kStep = sizeof( Node ) + sizeof( Node ) / 2;
      prefetch( c.ahead );
      if constexpr ( kStep > 64 ) { prefetch( c.ahead + kStep / 2 ); }
      c.ahead += kStep;
   }

   HashDirectory directory_;
   std::size_t size_ = 0;
};

} // namespace Quon::detail

#include "Quon/detail/HashStoreChanges.h"
#include "Quon/detail/HashStoreExtract.h"
#include "Quon/detail/HashStoreWalk.h"
