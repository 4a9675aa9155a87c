#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

#include "Quon/detail/HashDirectory.h"

namespace Quon::detail {

/// Bit i set: the i-th of 16 bytes at `tags` equals `tag`.
inline std::uint64_t matchTags16( const std::uint8_t * tags, std::uint8_t tag ) {
#if defined( __SSE2__ )
   const __m128i all = _mm_loadu_si128( reinterpret_cast< const __m128i * >( tags ) );
   const __m128i same = _mm_cmpeq_epi8( all, _mm_set1_epi8( static_cast< char >( tag ) ) );
   return static_cast< std::uint64_t >( _mm_movemask_epi8( same ) );
#else
   std::uint64_t found = 0;
   for ( unsigned i = 0; i < 16; ++i ) { found |= std::uint64_t{ tags[i] == tag } << i; }
   return found;
#endif
}

/// Up to 48 elements in one allocation, found by a byte of their hash.
///
///    | live, capacity, depth ... | tag per slot | order list | element per slot |
///      16 bytes                    1 byte each    1 byte each
///
/// Header and tags of a full-grown segment are one cache line, and a look-up touches that line and
/// the element's. Elements stay in their slots: deleting leaves a hole, sorting writes the order
/// list only. They move when the segment grows, shrinks, splits or merges.
template< class Node >
class HashSegment : public HashLeaf {
 public:
   static constexpr unsigned kMaxCapacity = 48;

   static HashSegment * create( unsigned wanted, unsigned depth ) {
      const unsigned capacity = capacityFor( wanted );
      // Large ones start a cache line. The detour of at most 48 bytes is noise beside them.
      const bool aligned = capacity >= 32;
      char * const raw = static_cast< char * >(
         ::operator new( bytesFor( capacity ) + ( aligned ? kCacheLine - 16 : 0 ) ) );
      const std::size_t off =
         aligned ? ( 0 - reinterpret_cast< std::uintptr_t >( raw ) ) % kCacheLine : 0;
      HashSegment * const segment = new ( raw + off ) HashSegment;
      segment->capacity = static_cast< std::uint8_t >( capacity );
      segment->depth = static_cast< std::uint8_t >( depth );
      segment->padding = static_cast< std::uint8_t >( off / 16 );
      return segment;
   }
   /// Frees the memory. Whatever is still live in it is not destroyed. Harmless on empty leaves.
   static void release( HashLeaf * leaf ) {
      if ( leaf->capacity != 0 ) {
         ::operator delete( reinterpret_cast< char * >( leaf ) - 16 * leaf->padding );
      }
   }
   void destroyElements() {
      eachLive( [this]( unsigned slot ) { std::destroy_at( at( slot ) ); } );
      live = 0;
   }

   unsigned count() const { return static_cast< unsigned >( std::popcount( live ) ); }
   bool isFull() const { return live == ( ~std::uint64_t{ 0 } >> ( 64 - capacity ) ); }

   std::uint8_t * tags() { return reinterpret_cast< std::uint8_t * >( this + 1 ); }
   const std::uint8_t * tags() const {
      return reinterpret_cast< const std::uint8_t * >( this + 1 );
   }
   std::uint8_t * order() { return tags() + capacity; }
   Node * elements() {
      return reinterpret_cast< Node * >( reinterpret_cast< char * >( this ) +
                                         elementsOffset( capacity ) );
   }
   Node * at( unsigned slot ) { return elements() + slot; }

   static std::uint8_t tagOf( std::uint64_t hash ) { return static_cast< std::uint8_t >( hash ); }

   /// The live slots whose tag is that of `hash`.
   std::uint64_t candidates( std::uint64_t hash ) const {
      const std::uint8_t tag = tagOf( hash );
      std::uint64_t found = 0;
      if ( capacity >= 32 ) { // bytes behind the tags are ours too, and `live` hides them
         found = matchTags16( tags(), tag ) | matchTags16( tags() + 16, tag ) << 16 |
                 matchTags16( tags() + 32, tag ) << 32;
      } else {
         for ( unsigned i = 0; i < capacity; i += 16 ) {
            found |= matchTags16( tags() + i, tag ) << i;
         }
      }
      return found & live;
   }

   /// A free slot, marked as live with the tag of `hash`; the element must be made there at once.
   unsigned takeSlot( std::uint64_t hash ) {
      const unsigned slot = static_cast< unsigned >( std::countr_one( live ) );
      live |= std::uint64_t{ 1 } << slot;
      tags()[slot] = tagOf( hash );
      ordered = kUnsorted;
      return slot;
   }

   /// Takes the slot out of the mask and of the order list, and returns its place in that list
   /// (capacity if the list is not kept). The element is the caller's.
   unsigned dropSlot( unsigned slot ) {
      live &= ~( std::uint64_t{ 1 } << slot );
      if ( ordered == kUnsorted ) { return capacity; }
      std::uint8_t * const list = order();
      const auto * const found =
         static_cast< std::uint8_t * >( std::memchr( list, static_cast< int >( slot ), ordered ) );
      const unsigned position = static_cast< unsigned >( found - list );
      --ordered;
      std::memmove( list + position, list + position + 1, ordered - position );
      return position;
   }

   template< class F >
   void eachLive( F f ) const {
      for ( std::uint64_t rest = live; rest != 0; rest &= rest - 1 ) {
         f( static_cast< unsigned >( std::countr_zero( rest ) ) );
      }
   }

   static std::size_t bytesFor( unsigned capacity ) {
      const std::size_t all = elementsOffset( capacity ) + capacity * sizeof( Node );
      const std::size_t probed = sizeof( HashLeaf ) + ( capacity + 15u ) / 16 * 16;
      return all > probed ? all : probed;
   }

 private:
   static_assert( alignof( Node ) <= alignof( HashLeaf ) );
   static constexpr std::size_t kCacheLine = 64;

   static std::size_t elementsOffset( unsigned capacity ) {
      constexpr std::size_t alignment = alignof( Node );
      return ( sizeof( HashLeaf ) + 2 * std::size_t{ capacity } + alignment - 1 ) &
             ~( alignment - 1 );
   }
   static unsigned capacityFor( unsigned wanted ) {
      for ( const unsigned capacity : { 1u, 2u, 4u, 6u, 8u, 12u, 16u, 24u, 32u } ) {
         if ( wanted <= capacity ) { return capacity; }
      }
      return kMaxCapacity;
   }
};

} // namespace Quon::detail
