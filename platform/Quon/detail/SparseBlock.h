#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "Quon/detail/MatchBytes.h"
#include "Quon/detail/Relocate.h"

namespace Quon::detail {

inline unsigned bitsSet( std::uint64_t x ) {
#if defined( __POPCNT__ )
   return static_cast< unsigned >( std::popcount( x ) );
#else // the library's function is slower than counting in place
   x -= x >> 1 & 0x5555555555555555;
   x = ( x & 0x3333333333333333 ) + ( x >> 2 & 0x3333333333333333 );
   x = ( x + ( x >> 4 ) ) & 0x0f0f0f0f0f0f0f0f;
   return static_cast< unsigned >( x * 0x0101010101010101 >> 56 );
#endif
}

/// Items in up to 64 numbered slots: a mask says which slots are taken, and the items stand side by
/// side as they came, with a list of their slots. A block with room for all 64 needs no list: each
/// item has its own place.
///
///    mask ...00101001, count 3 | slots 3 0 5 . | item of slot 3 | of 0 | of 5 | room |
///
/// It grows with what it holds, so that a lonely item costs little, and shrinks likewise. Adding
/// moves nothing, dropping one item: the last one into the gap.
/// `Watch` is told of all that moves: `moved( first, count, to )` and `replaced( block, block or
/// null )`.
template< class T >
class alignas( 16 ) SparseBlock {
 public:
   std::uint64_t mask() const { return mask_; }
   bool has( unsigned slot ) const { return mask_ >> slot & 1; }
   /// The item of a slot that is taken.
   T & at( unsigned slot ) {
      return isDirect() ? directItems()[slot] : listedItems()[positionOf( slot )];
   }

   /// The number in `slot`, 0 if it is free. Those that are kept are not 0.
   T valueAt( unsigned slot )
      requires( std::is_integral_v< T > )
   {
      T * const place = find( slot );
      return place ? *place : 0;
   }
   /// Its place; null if the slot is free.
   T * find( unsigned slot )
      requires( std::is_integral_v< T > )
   {
      if ( isDirect() ) [[likely]] {
         T * const place = directItems() + slot;
         return *place != 0 ? place : nullptr;
      }
      return has( slot ) ? &at( slot ) : nullptr;
   }

   /// Memory for the item of a free slot, which is `taken` when it is there; null if there is none.
   T * placeFor( unsigned slot ) {
      if ( isDirect() ) { return directItems() + slot; }
      return count_ < capacity_ ? listedItems() + count_ : nullptr;
   }
   void taken( unsigned slot ) {
      mask_ |= std::uint64_t{ 1 } << slot;
      if ( !isDirect() ) { slots()[count_] = static_cast< std::uint8_t >( slot ); }
      ++count_;
   }

   /// Memory for the item of a free slot, which counts at once. `block` may be null; it grows as
   /// needed.
   template< class Watch >
   static T * add( SparseBlock *& block, unsigned slot, Watch watch ) {
      if ( !block ) {
         block = create( 1 );
      } else if ( block->count_ == block->capacity_ ) {
         replace( block, create( capacityFor( block->count_ + 1u ) ), watch );
      }
      T * const place = block->placeFor( slot );
      block->taken( slot );
      return place;
   }

   /// Closes the gap of an item that is destroyed already. Frees the block with its last item.
   template< class Watch >
   static void drop( SparseBlock *& block, unsigned slot, Watch watch ) {
      const unsigned left = --block->count_;
      block->mask_ &= ~( std::uint64_t{ 1 } << slot );
      if ( left == 0 ) {
         SparseBlock * const gone = std::exchange( block, nullptr );
         watch.replaced( gone, nullptr );
         ::operator delete( gone );
         return;
      }
      if ( !block->isDirect() ) {
         const unsigned gap = block->positionOf( slot );
         if ( gap != left ) {
            block->slots()[gap] = block->slots()[left];
            moveItems( block->items() + left, 1, block->items() + gap, watch );
         }
      } else if constexpr ( kZeroIsNone ) {
         block->items()[slot] = 0;
      }
      if ( left * 5 <= block->capacity_ ) {
         const unsigned capacity = capacityFor( left + left / 2 );
         if ( capacity < block->capacity_ ) { replace( block, create( capacity ), watch ); }
      }
   }

   /// Calls `f( slot, item )` in the order of the slots.
   template< class F >
   void forEach( F f ) {
      for ( std::uint64_t rest = mask_; rest != 0; rest &= rest - 1 ) {
         const unsigned slot = static_cast< unsigned >( std::countr_zero( rest ) );
         f( slot, at( slot ) );
      }
   }
   static void destroy( SparseBlock * block ) {
      block->forEach( []( unsigned, T & item ) { std::destroy_at( &item ); } );
      ::operator delete( block );
   }

 private:
   static_assert( alignof( T ) <= 16 );
   /// Free places of a block with room for all hold 0.
   static constexpr bool kZeroIsNone = std::is_integral_v< T >;

   bool isDirect() const { return capacity_ == 64; }
   std::uint8_t * slots() { return reinterpret_cast< std::uint8_t * >( this + 1 ); }
   T * items() { return isDirect() ? directItems() : listedItems(); }
   T * directItems() { return reinterpret_cast< T * >( this + 1 ); }
   T * listedItems() { return reinterpret_cast< T * >( slots() + kListed ); }

   /// Of a slot that is taken, in a block that lists them. Entries beyond the count match nothing:
   /// only the position found first can be that of a live item.
   unsigned positionOf( unsigned slot ) {
      return static_cast< unsigned >(
         std::countr_zero( matchBytes16( slots(), static_cast< std::uint8_t >( slot ) ) ) );
   }

   static unsigned capacityFor( unsigned wanted ) {
      for ( const unsigned capacity : { 1u, 4u, kListed } ) {
         if ( wanted <= capacity ) { return capacity; }
      }
      return 64;
   }
   static SparseBlock * create( unsigned capacity ) {
      const unsigned slotBytes = capacity == 64 ? 0 : kListed;
      void * const memory =
         ::operator new( sizeof( SparseBlock ) + slotBytes + capacity * sizeof( T ) );
      SparseBlock * const block = new ( memory ) SparseBlock;
      block->capacity_ = static_cast< std::uint8_t >( capacity );
      std::memset( block->slots(), kNoSlot, slotBytes );
      if constexpr ( kZeroIsNone ) {
         if ( block->isDirect() ) { std::fill_n( block->items(), 64, T{ 0 } ); }
      }
      return block;
   }
   template< class Watch >
   static void replace( SparseBlock *& block, SparseBlock * with, Watch watch ) {
      with->mask_ = block->mask_;
      with->count_ = block->count_;
      if ( !block->isDirect() && !with->isDirect() ) {
         std::memcpy( with->slots(), block->slots(), block->count_ );
         moveItems( block->items(), block->count_, with->items(), watch );
      } else {
         unsigned position = 0;
         block->forEach( [&]( unsigned slot, T & item ) {
            if ( !with->isDirect() ) {
               with->slots()[position] = static_cast< std::uint8_t >( slot );
            }
            moveItems( &item, 1, with->items() + ( with->isDirect() ? slot : position ), watch );
            ++position;
         } );
      }
      watch.replaced( block, with );
      ::operator delete( block );
      block = with;
   }

   template< class Watch >
   static void moveItems( T * first, unsigned count, T * to, Watch watch ) {
      relocate( first, count, to );
      watch.moved( first, count, to );
   }

   static constexpr std::uint8_t kNoSlot = 255;
   static constexpr unsigned kListed = 16; ///< More are not listed: there is room for all then.

   std::uint64_t mask_ = 0;
   std::uint8_t count_ = 0; ///< Bits set in the mask.
   std::uint8_t capacity_ = 0;
};

} // namespace Quon::detail
