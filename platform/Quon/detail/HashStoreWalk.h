#pragma once

// Walking through a HashStore in order. Included by HashStore.h only.
//
// A line's elements are sorted when a walk enters it, which writes its order list and moves none.
// On entering, a line further ahead is found, and its memory is asked for as the walk goes on.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Writes the order list: one pass puts each slot into one of 64 buckets by its next hash bits,
/// which leaves little for the insertion sort. About 3 ns per element.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::sort( Line & line ) {
   constexpr std::uint64_t kSlotMask = 63;
   std::array< std::uint64_t, Line::kSlots > unsorted;
   std::array< std::uint64_t, Line::kSlots > sorted;
   std::array< std::uint8_t, 65 > place{};
   const unsigned depth = line.depth;
   unsigned n = 0;
   line.eachLive( [&]( unsigned slot ) {
      const std::uint64_t hash = hashOf( Elements::at( line, slot )->fwkKey() );
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
   std::uint8_t * const order = Elements::order( line );
   for ( unsigned i = 0; i < n; ++i ) {
      order[i] = static_cast< std::uint8_t >( sorted[i] & kSlotMask );
   }
   if ( ties ) [[unlikely]] { // equal as far as we looked
      std::sort( order, order + n, [&line]( std::uint8_t a, std::uint8_t b ) {
         return isBefore( Elements::at( line, a )->fwkKey(), Elements::at( line, b )->fwkKey() );
      } );
   }
   line.ordered = static_cast< std::uint8_t >( n );
}

/// The first hash behind those of a leaf. False: there is none.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::nextHash( std::uint64_t & hash, unsigned depth ) {
   if ( depth == 0 ) { return false; }
   hash = ( ( hash >> ( 64 - depth ) ) + 1 ) << ( 64 - depth );
   return hash != 0;
}

/// Goes one line further ahead and begins to ask for its memory; `prefetchAhead` goes on with it.
/// The lines of a leaf lie almost in order, so that those to come are found without a look at them.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::lookAhead( Where & c ) const {
   if ( c.aheadHash == 0 ) { return; }
   const Line & line = lineOf( c.aheadHash );
   prefetch( reinterpret_cast< std::uintptr_t >( &line ) + 4 * sizeof( Line ) );
   c.ahead = reinterpret_cast< std::uintptr_t >( line.elements );
   prefetch( c.ahead - 1 ); // the order list
   prefetch( c.ahead );
   if ( !nextHash( c.aheadHash, line.depth ) ) { c.aheadHash = 0; }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::standIn( Where & c, Line & line, unsigned position,
                                         std::uint64_t hash ) const {
   const bool goesOn = c.aheadHash != 0;
   c.leaf = &line;
   c.at = static_cast< int >( position );
   c.node = Elements::at( line, Elements::order( line )[position] );
   if ( !goesOn ) { // a walk begins, or ends
      c.aheadHash = nextHash( hash, line.depth ) ? hash : 0;
      for ( unsigned i = 1; i < kLinesAhead; ++i ) { lookAhead( c ); }
   }
   lookAhead( c );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::enterFrom( Where & c, std::uint64_t hash ) const {
   for ( ;; ) {
      Line & line = lineOf( hash );
      if ( line.isTree ) {
         c.node = &*Tree::of( line ).elements.begin();
         c.leaf = nullptr;
         return;
      }
      if ( line.count != 0 ) {
         if ( line.ordered == Line::kUnsorted ) { sort( line ); }
         unsigned position = 0;
         while ( !line.isLive( Elements::order( line )[position] ) ) { ++position; }
         standIn( c, line, position, hash );
         return;
      }
      if ( !nextHash( hash, line.depth ) ) {
         c.node = nullptr;
         c.leaf = nullptr;
         return;
      }
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::leaveLine( Where & c, unsigned depth, std::uint64_t hash ) const {
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
   Line & line = lineOf( hash );
   if ( line.isTree ) {
      const Tree & tree = Tree::of( line );
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
   } else if ( line.count != 0 ) {
      if ( line.ordered == Line::kUnsorted ) { sort( line ); }
      // Deleted elements are still in the order list, but have no key to compare.
      std::array< std::uint8_t, Line::kSlots > positions;
      auto end = positions.begin();
      for ( std::uint8_t i = 0; i < line.ordered; ++i ) {
         if ( line.isLive( Elements::order( line )[i] ) ) { *end++ = i; }
      }
      const auto at = std::partition_point( positions.begin(), end, [&]( std::uint8_t i ) {
         const auto & other = Elements::at( line, Elements::order( line )[i] )->fwkKey();
         const std::uint64_t otherHash = hashOf( other );
         if ( otherHash != hash ) { return otherHash < hash; }
         const auto compared = Traits::order( other, key );
         return behind ? compared <= 0 : compared < 0;
      } );
      if ( at != end ) {
         standIn( c, line, *at, hash );
         return;
      }
   }
   leaveLine( c, line.depth, hash );
}

} // namespace Quon::detail
