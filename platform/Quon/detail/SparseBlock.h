#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

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
/// side in their order. A block with room for all 64 has each at its own place instead.
///
///    mask ...00101001, capacity 4 | item of slot 0 | of 3 | of 5 | room |
///
/// It grows with what it holds, so that a lonely item costs little, and shrinks likewise.
/// `Watch` is told of all that moves: `moved( from, to )` and `replaced( block, block or null )`.
template< class T >
class alignas( 16 ) SparseBlock {
 public:
   std::uint64_t mask() const { return mask_; }
   bool has( unsigned slot ) const { return mask_ >> slot & 1; }
   T & at( unsigned slot ) { return items()[indexOf( slot )]; }

   /// Memory for the item of a free slot, which counts at once. `block` may be null.
   template< class Watch >
   static T * add( SparseBlock *& block, unsigned slot, Watch watch ) {
      const std::uint64_t bit = std::uint64_t{ 1 } << slot;
      if ( !block || ( block->capacity_ < 64 && bitsSet( block->mask_ ) == block->capacity_ ) ) {
         const unsigned capacity = block ? capacityFor( block->capacity_ + 1u ) : 1;
         replace( block, create( capacity ), watch );
      }
      T * const items = block->items();
      const unsigned index = block->indexOf( slot );
      if ( block->capacity_ < 64 ) {
         for ( unsigned i = bitsSet( block->mask_ ); i > index; --i ) {
            move( items + i - 1, items + i, watch );
         }
      }
      block->mask_ |= bit;
      return items + index;
   }

   /// Closes the gap of an item that is destroyed already. Frees the block with its last item.
   template< class Watch >
   static void drop( SparseBlock *& block, unsigned slot, Watch watch ) {
      const unsigned index = block->indexOf( slot );
      block->mask_ &= ~( std::uint64_t{ 1 } << slot );
      const unsigned left = bitsSet( block->mask_ );
      if ( block->capacity_ < 64 ) {
         T * const items = block->items();
         for ( unsigned i = index; i < left; ++i ) { move( items + i + 1, items + i, watch ); }
      }
      if ( left == 0 ) {
         SparseBlock * const gone = std::exchange( block, nullptr );
         watch.replaced( gone, nullptr );
         ::operator delete( gone );
      } else if ( left * 5 <= block->capacity_ ) {
         replace( block, create( capacityFor( left + left / 2 ) ), watch );
      }
   }

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

   T * items() { return reinterpret_cast< T * >( this + 1 ); }
   unsigned indexOf( unsigned slot ) const {
      return capacity_ == 64 ? slot : bitsSet( mask_ & ( ( std::uint64_t{ 1 } << slot ) - 1 ) );
   }
   static unsigned capacityFor( unsigned wanted ) {
      for ( const unsigned capacity : { 1u, 2u, 4u, 8u, 16u, 24u } ) {
         if ( wanted <= capacity ) { return capacity; }
      }
      return 64;
   }
   static SparseBlock * create( unsigned capacity ) {
      void * const memory = ::operator new( sizeof( SparseBlock ) + capacity * sizeof( T ) );
      SparseBlock * const block = new ( memory ) SparseBlock;
      block->capacity_ = static_cast< std::uint8_t >( capacity );
      return block;
   }
   template< class Watch >
   static void replace( SparseBlock *& block, SparseBlock * with, Watch watch ) {
      if ( block ) {
         with->mask_ = block->mask_;
         block->forEach(
            [&]( unsigned slot, T & item ) { move( &item, &with->at( slot ), watch ); } );
         watch.replaced( block, with );
         ::operator delete( block );
      }
      block = with;
   }
   template< class Watch >
   static void move( T * from, T * to, Watch watch ) {
      new ( to ) T( std::move( *from ) );
      std::destroy_at( from );
      watch.moved( from, to );
   }

   std::uint64_t mask_ = 0;
   std::uint8_t capacity_ = 0;
};

} // namespace Quon::detail
