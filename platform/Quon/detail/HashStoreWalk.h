#pragma once

// Walking through a HashStore in order. Included by HashStore.h only.
//
// A line's entries are sorted when a walk enters it, which moves no element. While a walk goes
// through a leaf, the memory of the next one's room is asked for.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Puts the entries in order: one pass puts each into one of 16 buckets by its next hash bits,
/// which leaves little for the insertion sort.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::sort( Line & line ) {
   constexpr std::uint64_t kEntryMask = Line::kEntries - 1;
   std::array< std::uint64_t, Line::kEntries > unsorted;
   std::array< std::uint64_t, Line::kEntries > sorted;
   std::array< std::uint8_t, 17 > begin{};
   const unsigned depth = line.depth;
   unsigned n = 0;
   line.eachLive( [&]( unsigned entry ) {
      const std::uint64_t hash = hashOf( Elements::at( line, entry )->fwkKey() );
      const std::uint64_t rest = depth == 64 ? 0 : hash << depth;
      unsorted[n++] = ( rest & ~kEntryMask ) | entry;
      ++begin[( rest >> 60 ) + 1];
   } );
   for ( unsigned i = 1; i < 16; ++i ) {
      begin[i] = static_cast< std::uint8_t >( begin[i] + begin[i - 1] );
   }
   for ( unsigned i = 0; i < n; ++i ) { sorted[begin[unsorted[i] >> 60]++] = unsorted[i]; }
   bool ties = false; // equal as far as we looked
   for ( unsigned i = 1; i < n; ++i ) {
      const std::uint64_t one = sorted[i];
      unsigned at = i;
      for ( ; at > 0 && sorted[at - 1] > one; --at ) { sorted[at] = sorted[at - 1]; }
      sorted[at] = one;
      ties |= at > 0 && ( ( sorted[at - 1] ^ one ) & ~kEntryMask ) == 0;
      ties |= at < i && ( ( sorted[at + 1] ^ one ) & ~kEntryMask ) == 0;
   }
   const Line before = line;
   if ( ties ) [[unlikely]] {
      std::sort( sorted.begin(), sorted.begin() + n, [&]( std::uint64_t a, std::uint64_t b ) {
         const auto keyOf = [&before]( std::uint64_t i ) -> const K & {
            return Elements::at( before, i & kEntryMask )->fwkKey();
         };
         return isBefore( keyOf( a ), keyOf( b ) );
      } );
   }
   line.becomeNothing( before.elements );
   for ( unsigned i = 0; i < n; ++i ) { line.append( before, sorted[i] & kEntryMask ); }
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
void HashStore< K, V, Traits >::standIn( Where & c, Line & line, unsigned entry,
                                         std::uint64_t hash ) const {
   const bool isSameLeaf =
      c.leaf && static_cast< const Line * >( c.leaf )->elements == line.elements;
   c.leaf = &line;
   c.at = static_cast< int >( entry );
   c.node = Elements::at( line, entry );
   if ( !isSameLeaf ) { lookAhead( c, hash ); }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::enterFrom( Where & c, std::uint64_t hash ) const {
   for ( ;; ) {
      Line & line = lineOf( hash );
      if ( line.state == Line::isTree ) {
         c.node = &*Tree::of( line ).elements.begin();
         c.leaf = nullptr;
         return;
      }
      if ( line.count != 0 ) {
         if ( line.state == Line::isUnsorted ) { sort( line ); }
         standIn( c, line, static_cast< unsigned >( std::countr_zero( line.live ) ), hash );
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
         standIn( c, line, *at, hash );
         return;
      }
   }
   leaveLine( c, line.depth, hash );
}

} // namespace Quon::detail
