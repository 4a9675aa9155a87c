#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <new>
#include <utility>

#include "Quon/detail/HashLeaf.h"

namespace Quon::detail {

/// The elements of a line, and the rooms of leaves.
///
/// A room is raw memory for a number of elements. Places that are free again are a list, each with
/// the number of the next.
template< class Node >
class HashElements {
   union Place {
      Place() {}
      ~Place() {}
      Node node;
      std::uint16_t nextGap;
   };
   static_assert( alignof( Place ) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__ );

 public:
   /// So many elements, or 64 KB, move in some 10 microseconds.
   static constexpr unsigned kMaxCapacity =
      std::clamp( 65536u / static_cast< unsigned >( sizeof( Place ) ), 64u, 1024u );
   /// Two leaves may become one when together they have no more elements than this.
   static constexpr unsigned kMaxWhole = kMaxCapacity / 8 * 3;

   static Node * inRoom( void * room, unsigned place ) {
      return &( static_cast< Place * >( room ) + place )->node;
   }
   static Node * at( const HashLine & line, unsigned entry ) {
      return inRoom( line.elements, line.places[entry] );
   }

   /// Raw memory for `capacity` elements; null for none.
   static void * allocate( unsigned capacity ) {
      return capacity == 0 ? nullptr : ::operator new( capacity * sizeof( Place ) );
   }
   static void release( void * room ) { ::operator delete( room ); }

   /// A place that is free no more; there must be one. What is made in it is to be counted.
   static unsigned takePlace( HashLeaf & leaf ) {
      if ( leaf.gap == HashLeaf::kNoPlace ) { return leaf.unused++; }
      return std::exchange( leaf.gap, placeIn( leaf, leaf.gap ).nextGap );
   }
   /// The element that was in it is gone.
   static void free( HashLeaf & leaf, std::uint16_t place ) {
      placeIn( leaf, place ).nextGap = std::exchange( leaf.gap, place );
      --leaf.size;
   }

   /// The room for so many elements, at most kMaxCapacity: twice as much each time, later less.
   static unsigned capacityFor( unsigned wanted ) {
      unsigned capacity = 0;
      while ( capacity < wanted && capacity < kMaxCapacity ) {
         const unsigned step = std::bit_floor( capacity );
         capacity += capacity < 64 ? std::max( 1u, capacity ) : step / 2;
      }
      return std::min( capacity, kMaxCapacity );
   }

 private:
   static Place & placeIn( const HashLeaf & leaf, unsigned place ) {
      return static_cast< Place * >( leaf.elements )[place];
   }
};

} // namespace Quon::detail
