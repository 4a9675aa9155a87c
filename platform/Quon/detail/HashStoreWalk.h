#pragma once

// Walking through a HashStore in order. Included by HashStore.h only.
//
// A segment is sorted when a walk enters it, which writes its order list and moves no element. On
// entering, the next segment is found, and its cache lines are asked for as the walk goes on.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Writes the order list: one pass puts each slot into one of 64 buckets by its next hash bits,
/// which leaves little for the insertion sort. About 3 ns per element.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::sort( Segment & segment ) {
   constexpr std::uint64_t kSlotMask = 63;
   std::array< std::uint64_t, Segment::kMaxCapacity > unsorted;
   std::array< std::uint64_t, Segment::kMaxCapacity > sorted;
   std::array< std::uint8_t, 65 > place{};
   const unsigned depth = segment.depth;
   unsigned n = 0;
   segment.eachLive( [&]( unsigned slot ) {
      const std::uint64_t hash = hashOf( segment.at( slot )->fwkKey() );
      const std::uint64_t rest = depth == 64 ? 0 : hash << depth;
      unsorted[n++] = ( rest & ~kSlotMask ) | slot;
      ++place[( rest >> 58 ) + 1];
   } );
   for ( unsigned i = 1; i < 64; ++i ) {
      place[i] = static_cast< std::uint8_t >( place[i] + place[i - 1] );
   }
   for ( unsigned i = 0; i < n; ++i ) { sorted[place[unsorted[i] >> 58]++] = unsorted[i]; }
   bool ties = false;
   for ( unsigned i = 1; i < n; ++i ) {
      const std::uint64_t one = sorted[i];
      unsigned at = i;
      for ( ; at > 0 && sorted[at - 1] > one; --at ) { sorted[at] = sorted[at - 1]; }
      sorted[at] = one;
      ties |= at > 0 && ( ( sorted[at - 1] ^ one ) & ~kSlotMask ) == 0;
      ties |= at < i && ( ( sorted[at + 1] ^ one ) & ~kSlotMask ) == 0;
   }
   std::uint8_t * const order = segment.order();
   for ( unsigned i = 0; i < n; ++i ) {
      order[i] = static_cast< std::uint8_t >( sorted[i] & kSlotMask );
   }
   if ( ties ) [[unlikely]] { // equal as far as we looked
      std::sort( order, order + n, [&segment]( std::uint8_t a, std::uint8_t b ) {
         return isBefore( segment.at( a )->fwkKey(), segment.at( b )->fwkKey() );
      } );
   }
   segment.ordered = static_cast< std::uint8_t >( n );
}

/// The first hash behind those of a leaf. False: there is none.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::nextHash( std::uint64_t & hash, unsigned depth ) {
   if ( depth == 0 ) { return false; }
   hash = ( ( hash >> ( 64 - depth ) ) + 1 ) << ( 64 - depth );
   return hash != 0;
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::standIn( Where & c, Segment & segment, unsigned position,
                                         std::uint64_t hash ) const {
   c.leaf = static_cast< HashLeaf * >( &segment );
   c.at = static_cast< int >( position );
   c.node = segment.at( segment.order()[position] );
   if ( nextHash( hash, segment.depth ) ) {
      c.ahead = reinterpret_cast< const char * >( directory_.leafOf( hash ) );
      __builtin_prefetch( c.ahead );
      __builtin_prefetch( c.ahead + 64 );
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::enterFrom( Where & c, std::uint64_t hash ) const {
   for ( ;; ) {
      HashLeaf * const leaf = directory_.leafOf( hash );
      if ( leaf->isTree ) {
         c.node = &*treeOf( leaf )->elements.begin();
         c.leaf = nullptr;
         return;
      }
      if ( leaf->live != 0 ) {
         Segment & segment = *segmentOf( leaf );
         if ( segment.ordered == HashLeaf::kUnsorted ) { sort( segment ); }
         unsigned position = 0;
         while ( !segment.isLive( segment.order()[position] ) ) { ++position; }
         standIn( c, segment, position, hash );
         return;
      }
      if ( !nextHash( hash, leaf->depth ) ) {
         c.node = nullptr;
         c.leaf = nullptr;
         return;
      }
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::leaveLeaf( Where & c, unsigned depth, std::uint64_t hash ) const {
   if ( nextHash( hash, depth ) ) {
      enterFrom( c, hash );
   } else {
      c.node = nullptr;
      c.leaf = nullptr;
   }
}

/// To the first element that comes after `key`, or (not `behind`) that is not before it.
template< class K, class V, class Traits >
template< bool behind, class P >
void HashStore< K, V, Traits >::seek( Where & c, const P & key ) const {
   const std::uint64_t hash = hashOf( key );
   HashLeaf * const leaf = directory_.leafOf( hash );
   if ( leaf->isTree ) {
      const Tree & tree = *treeOf( leaf );
      const auto & elements = tree.elements;
      const auto at = tree.hash > hash   ? elements.begin()
                      : tree.hash < hash ? elements.end()
                      : behind           ? elements.upper_bound( key )
                                         : elements.lower_bound( key );
      if ( at != elements.end() ) {
         c.node = &*at;
         c.leaf = nullptr;
         return;
      }
   } else if ( leaf->live != 0 ) {
      Segment & segment = *segmentOf( leaf );
      if ( segment.ordered == HashLeaf::kUnsorted ) { sort( segment ); }
      // Deleted elements are still in the order list, but have no key to compare.
      std::array< std::uint8_t, Segment::kMaxCapacity > positions;
      auto end = positions.begin();
      for ( std::uint8_t i = 0; i < segment.ordered; ++i ) {
         if ( segment.isLive( segment.order()[i] ) ) { *end++ = i; }
      }
      const auto at = std::partition_point( positions.begin(), end, [&]( std::uint8_t i ) {
         const auto & other = segment.at( segment.order()[i] )->fwkKey();
         const std::uint64_t otherHash = hashOf( other );
         if ( otherHash != hash ) { return otherHash < hash; }
         const auto compared = Traits::order( other, key );
         return behind ? compared <= 0 : compared < 0;
      } );
      if ( at != end ) {
         standIn( c, segment, *at, hash );
         return;
      }
   }
   leaveLeaf( c, leaf->depth, hash );
}

} // namespace Quon::detail
