#pragma once

// Walking through a HashStore in order. Included by HashStore.h only.
//
// A line's entries are sorted when a walk enters it, which moves no element. While a walk goes
// through a leaf, the memory of the next one's room is asked for.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Puts the entries in order. Each is compared with all others, by the 16 hash bits behind those
/// that they share, which says how many come before it. That is many comparisons, but the compiler
/// makes two instructions of 16 of them, and there is no branch to be mispredicted.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::sort( Line & line ) {
   std::array< std::int16_t, Line::kEntries > bits{}; // flipped on top: they compare as signed
   std::array< std::uint8_t, Line::kEntries > entries;
   unsigned n = 0;
   line.eachLive( [&]( unsigned entry ) {
      const std::uint64_t hash = hashOf( Elements::at( line, entry )->fwkKey() );
      const std::uint64_t behind = hash << ( line.depth & 63 );
      bits[n] = static_cast< std::int16_t >( ( behind >> 48 ) ^ 0x8000 );
      entries[n++] = static_cast< std::uint8_t >( entry );
   } );
   std::array< std::int16_t, Line::kEntries > ranks{};
   for ( unsigned i = 0; i < n; ++i ) {
      const std::int16_t one = bits[i];
      for ( unsigned j = 0; j < Line::kEntries; ++j ) {
         ranks[j] = static_cast< std::int16_t >( ranks[j] + ( bits[j] > one ) );
      }
   }
   std::array< std::uint8_t, Line::kEntries > sorted;
   std::uint32_t taken = 0;
   for ( unsigned i = 0; i < n; ++i ) {
      const auto rank = static_cast< unsigned >( ranks[i] );
      sorted[rank] = entries[i];
      taken |= 1u << rank;
   }
   if ( taken != ( 1u << n ) - 1 ) [[unlikely]] { // ties
      std::sort( entries.begin(), entries.begin() + n, [&line]( unsigned a, unsigned b ) {
         return isBefore( Elements::at( line, a )->fwkKey(), Elements::at( line, b )->fwkKey() );
      } );
      sorted = entries;
   }
   line.orderIs( sorted );
}

/// The first hash behind those of a leaf. False: there is none.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::nextHash( std::uint64_t & hash, unsigned depth ) {
   if ( depth == 0 ) { return false; }
   hash = ( ( hash >> ( 64 - depth ) ) + 1 ) << ( 64 - depth );
   return hash != 0;
}

/// Begins to ask for the memory of the leaf behind the one of `hash`; `prefetchAhead` goes on with
/// it.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::lookAhead( Where & c, std::uint64_t hash ) const {
   const HashLeaf & leaf = *directory_.leafOf( hash );
   c.ahead = reinterpret_cast< std::uintptr_t >( leaf.elements );
   if ( !nextHash( hash, leaf.depth ) ) { return; }
   const HashLeaf & next = *directory_.leafOf( hash );
   c.ahead = reinterpret_cast< std::uintptr_t >( next.elements );
   prefetch( reinterpret_cast< std::uintptr_t >( next.lines ) );
   if ( !nextHash( hash, next.depth ) ) { return; }
   prefetch( reinterpret_cast< std::uintptr_t >( directory_.leafOf( hash ) ) );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::standIn( Where & c, HashLeaf & leaf, Line & line, unsigned entry,
                                         std::uint64_t hash ) const {
   const bool isSameLeaf = c.leaf && c.home == &leaf;
   c.leaf = &line;
   c.home = &leaf;
   c.at = static_cast< int >( entry );
   c.node = Elements::at( line, entry );
   if ( !isSameLeaf ) { lookAhead( c, hash ); }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::enterFrom( Where & c, std::uint64_t hash ) const {
   for ( ;; ) {
      HashLeaf & leaf = *directory_.leafOf( hash );
      Line & line = leaf.lineOf( hash );
      if ( line.state == Line::isTree ) {
         c.node = &*Tree::of( line ).elements.begin();
         c.leaf = nullptr;
         return;
      }
      if ( line.count != 0 ) {
         if ( line.state == Line::isUnsorted ) { sort( line ); }
         standIn( c, leaf, line, static_cast< unsigned >( std::countr_zero( line.live ) ), hash );
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
   HashLeaf & leaf = *directory_.leafOf( hash );
   Line & line = leaf.lineOf( hash );
   if ( line.state == Line::isTree ) {
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
      if ( line.state == Line::isUnsorted ) { sort( line ); }
      std::array< std::uint8_t, Line::kEntries > entries;
      auto end = entries.begin();
      line.eachLive( [&end]( unsigned entry ) { *end++ = static_cast< std::uint8_t >( entry ); } );
      const auto at = std::partition_point( entries.begin(), end, [&]( std::uint8_t entry ) {
         const auto & other = Elements::at( line, entry )->fwkKey();
         const std::uint64_t otherHash = hashOf( other );
         if ( otherHash != hash ) { return otherHash < hash; }
         const auto compared = Traits::order( other, key );
         return behind ? compared <= 0 : compared < 0;
      } );
      if ( at != end ) {
         standIn( c, leaf, line, *at, hash );
         return;
      }
   }
   leaveLine( c, line.depth, hash );
}

} // namespace Quon::detail
