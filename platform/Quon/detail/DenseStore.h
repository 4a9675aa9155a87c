#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Quon/detail/Cursor.h"
#include "Quon/detail/Element.h"
#include "Quon/detail/SparseBlock.h"

namespace Quon::detail {

/// A key of a set as it is found: by value, because a bitmap holds no elements to point to.
template< class Node >
class FoundKey {
 public:
   FoundKey() = default;
   explicit FoundKey( const Node & node ) : node_( node ) {}
   explicit operator bool() const { return node_.has_value(); }
   const Node & operator*() const { return *node_; }
   const Node * operator->() const { return &*node_; }

 private:
   std::optional< Node > node_;
};

/// A cursor that carries the key it stands on.
template< class Node >
struct CursorWithKey : Cursor< Node > {
   std::optional< Node > here;

   CursorWithKey() = default;
   CursorWithKey( const CursorWithKey & other ) : Cursor< Node >( other ) { stand( other.here ); }
   CursorWithKey & operator=( const CursorWithKey & other ) {
      Cursor< Node >::operator=( other );
      stand( other.here );
      return *this;
   }
   void stand( const std::optional< Node > & on ) {
      here = on;
      this->node = here ? &*here : nullptr;
   }
};

/// Elements in the order of their numbers: a radix tree of blocks of 64. See DenseMap2018.h.
///
/// The lowest level holds the elements of 64 consecutive keys; in a set it is the mask alone, kept
/// in the place of the pointer to a block. The tree is as high as its largest key needs.
template< std::unsigned_integral K, class V, class Traits >
class DenseStore {
 public:
   using Key = K;
   using Value = V;
   using Node = Element< K, V, Traits >;
   static constexpr bool isSet = std::is_void_v< V >;
   static constexpr bool nodesAreCopies = isSet;
   using NodePtr = std::conditional_t< isSet, FoundKey< Node >, const Node * >;
   using Where = std::conditional_t< isSet, CursorWithKey< Node >, Cursor< Node > >;
   using Watchers = Cursor< Node > *;
   class Remains;

   DenseStore() = default;
   DenseStore( DenseStore && other ) noexcept
      : root_( std::exchange( other.root_, 0 ) ),
        height_( std::exchange( other.height_, 0 ) ),
        size_( std::exchange( other.size_, 0 ) ) {}
   DenseStore & operator=( DenseStore && other ) noexcept {
      std::swap( root_, other.root_ );
      std::swap( height_, other.height_ );
      std::swap( size_, other.size_ );
      return *this;
   }
   ~DenseStore() {
      if ( root_ ) { destroy( root_, height_ ); }
   }

   std::size_t size() const { return size_; }
   static bool isBefore( K a, K b ) { return a < b; }

   NodePtr find( K key ) const {
      if constexpr ( isSet ) {
         return has( key ) ? NodePtr( Node( key ) ) : NodePtr();
      } else {
         return findMutable( key );
      }
   }
   Node * findMutable( K key ) const
      requires( !isSet )
   {
      Elements * const block = elementsOf( lowest( key ) );
      return block && block->has( slotOf( key, 0 ) ) ? &block->at( slotOf( key, 0 ) ) : nullptr;
   }

   /// Where an element is; of a set also the element itself.
   struct Place {
      Node * node = nullptr;
      K key = 0;
      std::optional< Node > copy;
      explicit operator bool() const { return node || copy; }
   };
   Place locate( K key ) const {
      Place place;
      place.key = key;
      if constexpr ( !isSet ) {
         place.node = findMutable( key );
      } else if ( has( key ) ) {
         place.copy.emplace( key );
      }
      return place;
   }
   static Node & at( const Place & place ) { return *place.node; }

   /// As in HashStore: `make` may consume what `key` refers to.
   template< class Make >
   auto insert( K key, Watchers watchers, Make make ) {
      Word * word = presentWordFor( key );
      if constexpr ( isSet ) {
         const bool inserted = !word || ( *word & bitOf( key ) ) == 0;
         if ( inserted ) {
            if ( !word ) { word = newWordFor( key ); }
            *word |= bitOf( key );
            ++size_;
         }
         return std::pair< NodePtr, bool >( NodePtr( Node( key ) ), inserted );
      } else {
         const unsigned slot = slotOf( key, 0 );
         Elements * block = word ? elementsOf( *word ) : nullptr;
         if ( block && block->has( slot ) ) { return std::pair( &block->at( slot ), false ); }
         Node * node = block ? block->placeFor( slot ) : nullptr;
         if ( node ) {
            new ( node ) Node( make() ); // may throw: the slot is not taken yet
            block->taken( slot );
         } else {
            Node fresh = make(); // may refer to an element that is about to move
            if ( !word ) { word = newWordFor( key ); }
            node =
               new ( Elements::add( block, slot, Watch{ watchers } ) ) Node( std::move( fresh ) );
            *word = wordOf( block );
         }
         ++size_;
         return std::pair( node, true );
      }
   }

   void erase( const Place & place, Watchers watchers ) {
      if constexpr ( !isSet ) { std::destroy_at( place.node ); }
      const std::uint64_t gone = bitOf( place.key );
      dropKeys( place.key, gone, watchers );
   }

   Remains extract( const std::optional< K > & from, const std::optional< K > & to,
                    Watchers watchers );

   template< class F >
   void forEach( F f ) {
      if ( root_ ) { visit( root_, height_, 0, f ); }
   }

   void first( Where & c ) const { seek( c, 0 ); }
   void notBefore( Where & c, K key ) const { seek( c, key ); }
   void after( Where & c, K key ) const {
      if ( key == static_cast< K >( ~K{ 0 } ) ) {
         standAtEnd( c );
      } else {
         seek( c, static_cast< K >( key + 1 ) );
      }
   }
   void next( Where & c ) const {
      if constexpr ( isSet ) {
         after( c, c.node->fwkKey() );
      } else {
         Elements & block = *static_cast< Elements * >( c.leaf );
         const std::uint64_t rest = block.mask() & ~std::uint64_t{ 1 } << c.at;
         if ( rest != 0 ) {
            c.at = std::countr_zero( rest );
            c.node = &block.at( static_cast< unsigned >( c.at ) );
         } else {
            after( c, c.node->fwkKey() );
         }
      }
   }

 private:
   /// Pointer to a block, or in a set at level 0 the mask of 64 keys. 0: nothing.
   using Word = std::uint64_t;
   using Inner = SparseBlock< Word >;
   /// (Sets have no blocks of elements; the type is then only a name.)
   using Elements = SparseBlock< Node >;
   static constexpr unsigned kMaxHeight = 10;

   /// Keeps cursors on the elements that move.
   struct Watch {
      Watchers watchers;
      void moved( const Node * first, unsigned count, const Node * to ) const {
         followMoved( watchers, first, count, to );
      }
      void replaced( const void * block, void * by ) const {
         for ( auto * c = watchers; c; c = c->nextRegistered ) {
            if ( c->leaf == block ) { c->leaf = by; }
         }
      }
   };
   struct NoWatch {
      static void moved( const Word *, unsigned, const Word * ) {}
      static void replaced( const Inner *, const Inner * ) {}
   };

   static Inner * innerOf( Word word ) { return reinterpret_cast< Inner * >( word ); }
   static Elements * elementsOf( Word word ) { return reinterpret_cast< Elements * >( word ); }
   static Word wordOf( const void * block ) { return reinterpret_cast< Word >( block ); }
   static unsigned slotOf( std::uint64_t key, unsigned level ) { return key >> 6 * level & 63; }
   static std::uint64_t bitOf( std::uint64_t key ) { return std::uint64_t{ 1 } << ( key & 63 ); }
   bool covers( std::uint64_t key ) const {
      return height_ == kMaxHeight || key >> 6 * ( height_ + 1 ) == 0;
   }
   bool has( K key ) const { return lowest( key ) & bitOf( key ); }

   /// The level 0 word for `key`; 0 if there is none.
   Word lowest( std::uint64_t key ) const {
      if ( !covers( key ) ) { return 0; }
      Word word = root_;
      for ( unsigned level = height_; level > 0 && word; --level ) {
         word = innerOf( word )->valueAt( slotOf( key, level ) );
      }
      return word;
   }
   /// Its place; null if the blocks above are missing.
   Word * presentWordFor( std::uint64_t key ) {
      if ( !covers( key ) || ( height_ > 0 && !root_ ) ) { return nullptr; }
      Word * word = &root_;
      for ( unsigned level = height_; level > 0 && word; --level ) {
         word = innerOf( *word )->find( slotOf( key, level ) );
      }
      return word;
   }

   Word * newWordFor( std::uint64_t key );
   void growTo( std::uint64_t key );
   void dropKeys( std::uint64_t key, std::uint64_t gone, Watchers watchers );
   void seek( Where & c, std::uint64_t key ) const;
   static std::optional< std::uint64_t > firstNotBefore( Word word, unsigned level,
                                                         std::uint64_t key );
   static void destroy( Word word, unsigned level );
   template< class F >
   static void visit( Word word, unsigned level, std::uint64_t base, F & f );
   static void standAtEnd( Where & c ) {
      c.leaf = nullptr;
      if constexpr ( isSet ) {
         c.stand( std::nullopt );
      } else {
         c.node = nullptr;
      }
   }

   Word root_ = 0;
   unsigned height_ = 0; ///< Levels of inner blocks above the lowest.
   std::size_t size_ = 0;
};

} // namespace Quon::detail

#include "Quon/detail/DenseStoreParts.h"
