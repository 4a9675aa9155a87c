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
///    | live, count, depth ... | tag per slot, 0: free | element per slot | order list |
///      16 bytes                 1 byte, whole groups                       1 byte each
///
/// Header and tags of a full-grown segment are one cache line, and a look-up touches that line and
/// the element's. An element goes to the group of 16 slots that its hash names, so that one
/// comparison of 16 tags finds it; where the group is full it goes to another one, and a bit in the
/// header tells look-ups of its kind to look there too.
///
/// Elements stay in their slots: deleting leaves a hole, sorting writes the order list only. They
/// move when the segment grows, shrinks, splits or merges.
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
      segment->groups = groupsFor( capacity );
      std::memset( segment->tags(), 0, 16 * groupsFor( capacity ) );
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
   }

   bool isFull() const { return count == capacity; }

   std::uint8_t * tags() { return reinterpret_cast< std::uint8_t * >( this + 1 ); }
   const std::uint8_t * tags() const {
      return reinterpret_cast< const std::uint8_t * >( this + 1 );
   }
   std::uint8_t * order() { return reinterpret_cast< std::uint8_t * >( elements() + capacity ); }
   Node * elements() {
      return reinterpret_cast< Node * >( reinterpret_cast< char * >( this ) +
                                         elementsOffset( groups ) );
   }
   Node * at( unsigned slot ) { return elements() + slot; }

   /// The group of 16 slots that an element with this hash prefers.
   unsigned homeOf( std::uint64_t hash ) const {
      return static_cast< unsigned >( ( hash >> 8 & 0xffff ) * groups >> 16 );
   }

   /// The live slots of one group whose tag is that of `hash`, as bits 0 to 15. Empty leaves and
   /// trees have no tags: whatever stands behind their header matches no live slot.
   std::uint64_t candidates( std::uint64_t hash, unsigned group ) const {
      return matchTags16( tags() + 16 * group, tagOf( hash ) ) & ( live >> ( 16 * group ) );
   }

   /// Whether elements like this may be in another group than their own.
   bool mayBeElsewhere( std::uint64_t hash, unsigned home ) const {
      return overflow[home] & kindOf( hash );
   }

   /// The slot for a new element. There must be one.
   unsigned freeSlot( std::uint64_t hash ) const {
      const std::uint64_t free = ~live & ( ~std::uint64_t{ 0 } >> ( 64 - capacity ) );
      const unsigned base = 16 * homeOf( hash );
      const std::uint64_t atHome = free >> base & 0xffff;
      return atHome ? base + static_cast< unsigned >( std::countr_zero( atHome ) )
                    : static_cast< unsigned >( std::countr_zero( free ) );
   }
   /// The element that was made in this free slot counts from now on.
   void addSlot( unsigned slot, std::uint64_t hash ) {
      live |= std::uint64_t{ 1 } << slot;
      ++count;
      tags()[slot] = tagOf( hash );
      ordered = kUnsorted;
      const unsigned home = homeOf( hash );
      if ( slot / 16 != home ) { overflow[home] |= kindOf( hash ); }
   }
   /// The element counts no more. It stays in the order list, which is skipped by `isLive`.
   void dropSlot( unsigned slot ) {
      live &= ~( std::uint64_t{ 1 } << slot );
      --count;
      tags()[slot] = 0;
   }
   void clearOverflow() { std::memset( overflow, 0, sizeof overflow ); }
   bool isLive( unsigned slot ) const { return live >> slot & 1; }

   template< class F >
   void eachLive( F f ) const {
      for ( std::uint64_t rest = live; rest != 0; rest &= rest - 1 ) {
         f( static_cast< unsigned >( std::countr_zero( rest ) ) );
      }
   }

   static std::size_t bytesFor( unsigned capacity ) {
      return elementsOffset( groupsFor( capacity ) ) + capacity * ( sizeof( Node ) + 1 );
   }

 private:
   static std::uint8_t tagOf( std::uint64_t hash ) {
      const auto tag = static_cast< std::uint8_t >( hash );
      return tag + ( tag == 0 ); // 0 marks a free slot
   }
   static std::uint8_t kindOf( std::uint64_t hash ) {
      return static_cast< std::uint8_t >( 1u << ( hash >> 24 & 7 ) );
   }

   static_assert( alignof( Node ) <= alignof( HashLeaf ) );
   static constexpr std::size_t kCacheLine = 64;

   static constexpr unsigned groupsFor( unsigned capacity ) { return ( capacity + 15 ) / 16; }
   static constexpr std::size_t elementsOffset( unsigned groups ) {
      return sizeof( HashLeaf ) + 16 * std::size_t{ groups };
   }
   static unsigned capacityFor( unsigned wanted ) {
      for ( const unsigned capacity : { 1u, 2u, 4u, 6u, 8u, 12u, 16u, 32u } ) {
         if ( wanted <= capacity ) { return capacity; }
      }
      return kMaxCapacity;
   }
};

} // namespace Quon::detail
