#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Quon::detail {

/// One cache line that says all about up to 24 elements: where they are and a tag of each.
///
///                    ┌────────┬────┬─────┬────────┬─────┬───────┬─────────────────────────┐
///                    │elements│live│count│capacity│depth│ordered│ 24 tags of 16 bits      │
///                    └───┬────┴────┴─────┴────────┴─────┴───────┴─────────────────────────┘
///    │ order list: 3 0 1 │ e0 │ e1 │    │ e3 │ ...
///
/// A look-up compares all tags at once and then touches the one element it is after: tags of 15
/// bits hardly ever mislead it, so that a look-up of an absent key touches no element.
///
/// Elements stay in their slots: deleting leaves a hole, sorting writes the order list only. They
/// move when their room grows or shrinks and when lines divide or unite. What a line points at
/// belongs to the collection; a line itself may be copied to another place at any time.
struct alignas( 16 ) HashLine {
   static constexpr unsigned kSlots = 24;
   static constexpr std::uint8_t kUnsorted = 255;

   void * elements = nullptr;   ///< `capacity` elements, their order list in front; or the tree.
   std::uint32_t live : 24 = 0; ///< Bit i: slot i holds an element.
   std::uint32_t isTree : 8 = 0;
   std::uint8_t count = 0; ///< How many bits of `live` are set.
   std::uint8_t capacity = 0;
   std::uint8_t depth = 0;   ///< Leading hash bits that all its elements share.
   std::uint8_t ordered = 0; ///< Elements in the order list, or kUnsorted.
   std::uint16_t tags[kSlots] = {};

   bool isFull() const { return count == capacity; }
   bool isNothing() const { return count == 0 && !isTree; }
   bool isLive( unsigned slot ) const { return live >> slot & 1; }

   /// The slots whose tag is that of `hash`, as bits. None in empty lines and trees.
   std::uint32_t candidates( std::uint64_t hash ) const { return slotsWithTag( tagOf( hash ) ); }

   /// There must be one.
   unsigned freeSlot() const {
      return static_cast< unsigned >( std::countr_one( std::uint32_t{ live } ) );
   }
   /// The element that was made in this free slot counts from now on.
   void addSlot( unsigned slot, std::uint64_t hash ) { addTaggedSlot( slot, tagOf( hash ) ); }
   void addTaggedSlot( unsigned slot, std::uint16_t tag ) {
      live |= 1u << slot;
      ++count;
      tags[slot] = tag;
      ordered = kUnsorted;
   }
   /// The element counts no more. It stays in the order list, which is skipped by `isLive`.
   void dropSlot( unsigned slot ) {
      live &= ~( 1u << slot );
      --count;
      tags[slot] = 0;
   }

   /// `f` may drop the slot it is called with.
   template< class F >
   void eachLive( F f ) const {
      for ( std::uint32_t rest = live; rest != 0; rest &= rest - 1 ) {
         f( static_cast< unsigned >( std::countr_zero( rest ) ) );
      }
   }

   /// Forgets what it points at.
   void becomeNothing() {
      const std::uint8_t sameDepth = depth;
      *this = HashLine();
      depth = sameDepth;
   }

 private:
   static std::uint16_t tagOf( std::uint64_t hash ) {
      return static_cast< std::uint16_t >( hash | 1 ); // 0 marks a free slot
   }

   std::uint32_t slotsWithTag( std::uint16_t tag ) const {
#if defined( __SSE2__ )
      const __m128i wanted = _mm_set1_epi16( static_cast< short >( tag ) );
      const auto same = [&]( unsigned from ) {
         const auto * const at = reinterpret_cast< const __m128i * >( tags + from );
         return _mm_cmpeq_epi16( _mm_load_si128( at ), wanted );
      };
      const __m128i front = _mm_packs_epi16( same( 0 ), same( 8 ) );
      const __m128i back = _mm_packs_epi16( same( 16 ), _mm_setzero_si128() );
      return static_cast< std::uint32_t >( _mm_movemask_epi8( front ) ) |
             static_cast< std::uint32_t >( _mm_movemask_epi8( back ) ) << 16;
#else
      std::uint32_t found = 0;
      for ( unsigned i = 0; i < kSlots; ++i ) { found |= std::uint32_t{ tags[i] == tag } << i; }
      return found;
#endif
   }
};
static_assert( sizeof( HashLine ) == 64 );

/// The elements of a line that is no tree.
template< class Node >
class HashElements {
   static constexpr std::size_t kUnit = alignof( std::max_align_t );

 public:
   static_assert( alignof( Node ) <= kUnit );

   static Node * at( const HashLine & line, std::size_t slot ) {
      return static_cast< Node * >( line.elements ) + slot;
   }
   /// Slot numbers. A walk reads them just before the first element, so they lie beside it.
   static std::uint8_t * order( const HashLine & line ) {
      return static_cast< std::uint8_t * >( line.elements ) - line.capacity;
   }
   static unsigned slotOf( const HashLine & line, const Node * node ) {
      return static_cast< unsigned >( node - at( line, 0 ) );
   }

   /// Gives an empty line room for so many elements at least.
   static void allocate( HashLine & line, unsigned wanted ) {
      const unsigned capacity = capacityFor( wanted );
      const std::size_t front = frontOf( capacity );
      line.elements =
         static_cast< char * >( ::operator new( front + capacity * sizeof( Node ) ) ) + front;
      line.capacity = static_cast< std::uint8_t >( capacity );
   }
   /// Frees the room, if any. Whatever is still live in it is not destroyed.
   static void release( HashLine & line ) {
      if ( line.capacity != 0 ) {
         ::operator delete( static_cast< char * >( line.elements ) - frontOf( line.capacity ) );
      }
      line.becomeNothing();
   }
   static void destroy( HashLine & line ) {
      line.eachLive( [&line]( unsigned slot ) { std::destroy_at( at( line, slot ) ); } );
      release( line );
   }

 private:
   static std::size_t frontOf( std::size_t capacity ) {
      return ( capacity + kUnit - 1 ) & ~( kUnit - 1 );
   }
   static unsigned capacityFor( unsigned wanted ) {
      for ( const unsigned capacity : { 1u, 2u, 4u, 8u, 16u } ) {
         if ( wanted <= capacity ) { return capacity; }
      }
      return HashLine::kSlots;
   }
};

} // namespace Quon::detail
