#pragma once

// The changes of shape of a HashStore. Included by HashStore.h only.
//
// Each touches the lines and elements of one leaf, or of two, and at most one directory page:
// bounded work, however large the collection is.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::insertWithRoom( std::uint64_t hash, Watchers watchers,
                                                Node && fresh ) -> Node * {
   for ( ;; ) {
      HashLeaf & leaf = *directory_.leafOf( hash );
      Line & line = leaf.lineOf( hash );
      if ( &leaf == HashDirectory::emptyLeaf() ) {
         directory_.replace( hash, HashLeaf::first().release() );
      } else if ( line.state == Line::isTree && Tree::of( line ).hash == hash ) {
         ++size_;
         return &Tree::mutableElement(
            *Tree::of( line ).elements.insert( std::move( fresh ) ).first );
      } else if ( line.isFull() ) {
         divide( hash, watchers );
      } else if ( !leaf.isFull() ) {
         return fill( leaf, line, hash, watchers, [&fresh] { return std::move( fresh ); } );
      } else if ( leaf.capacity < Elements::kMaxCapacity ) {
         move( leaf, leaf.capacity + 1u, watchers );
      } else {
         divideLeaf( leaf, hash, watchers );
      }
   }
}

template< class K, class V, class Traits >
unsigned HashStore< K, V, Traits >::elementsIn( HashLeaf & leaf ) {
   unsigned n = 0;
   eachLine( leaf, [&n]( const Line & line ) {
      if ( line.state != Line::isTree ) { n += line.count; }
   } );
   return n;
}

/// Moves the elements of a leaf's lines, wherever they are, to the leaf's new room: in the order of
/// the lines, so that a walk goes through memory almost in order. If they are `from` another leaf's
/// room, their places there are free afterwards.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::gather( HashLeaf & leaf, Room room, unsigned capacity,
                                        Watchers watchers, HashLeaf * from ) {
   unsigned n = 0;
   for ( unsigned i = 0; i < leaf.count; ++i ) {
      if ( i + kLinesAhead < leaf.count ) { prefetchElements( leaf.lines[i + kLinesAhead] ); }
      Line & line = leaf.lines[i];
      if ( line.state == Line::isTree ) { continue; }
      line.eachLive( [&]( unsigned entry ) {
         relocate( Elements::at( line, entry ), 1, Elements::inRoom( room.get(), n ), watchers );
         if ( from ) { Elements::free( *from, line.places[entry] ); }
         line.places[entry] = static_cast< std::uint16_t >( n++ );
      } );
      line.elements = room.get();
   }
   leaf.roomIs( room.release(), capacity, n );
}

/// Moves the elements to room for so many at least. None at all if that is 0.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::move( HashLeaf & leaf, unsigned wanted, Watchers watchers ) {
   const Room old( leaf.elements );
   const unsigned capacity = Elements::capacityFor( wanted );
   gather( leaf, Room( Elements::allocate( capacity ) ), capacity, watchers );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::replaceLeaf( HashLeaf & leaf, std::uint64_t hash,
                                             HashLeaf::Ptr with, Watchers watchers ) {
   with->roomIsOf( leaf );
   forgetPlaces( leaf, watchers );
   directory_.replace( hash, with.release() );
   HashLeaf::destroy( &leaf );
}

/// The leaf for `hash`, in which the line for `hash` can be divided.
template< class K, class V, class Traits >
HashLeaf & HashStore< K, V, Traits >::leafWithRoom( std::uint64_t hash, Watchers watchers ) {
   for ( ;; ) {
      HashLeaf & leaf = *directory_.leafOf( hash );
      const bool isNarrow = leaf.widthOf( leaf.lineOf( hash ) ) == 1;
      if ( isNarrow && leaf.bits == HashLeaf::kMaxBits ) {
         divideLeaf( leaf, hash, watchers );
      } else if ( isNarrow || leaf.count == leaf.room ) {
         const unsigned room =
            leaf.count < leaf.room ? leaf.room : leaf.count + leaf.count / 2 + 1u;
         replaceLeaf( leaf, hash, HashLeaf::remade( leaf, leaf.bits + isNarrow, room ), watchers );
      } else {
         return leaf;
      }
   }
}

/// Makes two leaves of one. The half with more elements keeps the room.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divideLeaf( HashLeaf & leaf, std::uint64_t hash,
                                            Watchers watchers ) {
   HashLeaf::Ptr zero = HashLeaf::half( leaf, false );
   HashLeaf::Ptr one = HashLeaf::half( leaf, true );
   const bool oneIsSmall = elementsIn( *one ) < elementsIn( *zero );
   HashLeaf & small = oneIsSmall ? *one : *zero;
   HashLeaf & large = oneIsSmall ? *zero : *one;
   const unsigned moving = elementsIn( small );
   const unsigned capacity = Elements::capacityFor( moving + moving / 4 );
   Room room( Elements::allocate( capacity ) );
   directory_.divide( hash, zero.get(), one.get() );
   static_cast< void >( zero.release() ); // they are the directory's now
   static_cast< void >( one.release() );

   forgetPlaces( leaf, watchers );
   large.roomIsOf( leaf );
   HashLeaf::destroy( &leaf );
   gather( small, std::move( room ), capacity, watchers, &large );
}

/// Makes two lines of the one for `hash`, by the next hash bit. A full line in which every hash is
/// `hash` becomes a tree instead.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divide( std::uint64_t hash, Watchers watchers ) {
   HashLeaf & old = *directory_.leafOf( hash );
   Line & full = old.lineOf( hash );
   const bool isTree = full.state == Line::isTree;
   const std::uint64_t bit = full.depth == 64 ? 0 : std::uint64_t{ 1 } << ( 63 - full.depth );
   std::uint32_t ones = 0; // the entries that go to the new line
   bool allSame = !isTree;
   full.eachLive( [&]( unsigned entry ) {
      const std::uint64_t other = hashOf( Elements::at( full, entry )->fwkKey() );
      allSame &= other == hash;
      ones |= std::uint32_t{ ( other & bit ) != 0 } << entry;
   } );
   if ( allSame ) {
      makeTree( old, full, hash, watchers );
      return;
   }
   const bool allOnes = isTree ? ( Tree::of( full ).hash & bit ) != 0 : ones == full.live;

   HashLeaf & leaf = leafWithRoom( hash, watchers );
   Line & line = leaf.lineOf( hash );
   forgetPlaces( line, watchers );
   Line & other = leaf.divide( hash );
   if ( allOnes ) {
      std::swap( line, other );
   } else {
      for ( ; ones != 0; ones &= ones - 1 ) {
         other.take( line, static_cast< unsigned >( std::countr_zero( ones ) ) );
      }
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::makeTree( HashLeaf & leaf, Line & line, std::uint64_t hash,
                                          Watchers watchers ) {
   auto tree = std::make_unique< Tree >( hash );
   line.eachLive( [&]( unsigned entry ) {
      Node & from = *Elements::at( line, entry );
      const Node & to = *tree->elements.insert( std::move( from ) ).first;
      std::destroy_at( &from );
      followNode( from, to, watchers );
      Elements::free( leaf, line.places[entry] );
   } );
   forgetPlaces( line, watchers );
   line.becomeTree( tree.release() );
}

/// The tree of `line` goes, if it has no element left.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::fellEmptyTree( HashLeaf & leaf, Line & line ) {
   if ( Tree::of( line ).elements.empty() ) {
      delete &Tree::of( line );
      line.becomeNothing( leaf.elements );
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::eraseFromTree( const Place & place, Watchers watchers ) {
   Tree::of( *place.line ).elements.erase( place.inTree );
   --size_;
   fellEmptyTree( *place.leaf, *place.line );
   if ( place.leaf->size <= place.leaf->few ) { tidy( place.hash, watchers ); }
}

/// After deletions that left few elements in the leaf for `hash`, or none: its lines become fewer
/// and its room smaller, and it unites with its other half if that is small too. An emptied
/// collection holds nothing.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::tidy( std::uint64_t hash, Watchers watchers ) {
   do {
      if ( size_ == 0 && directory_.isSingleLeaf() ) {
         forgetPlaces( *directory_.leafOf( hash ), watchers );
         destroyLeaf( directory_.leafOf( hash ) );
         directory_.clear();
         return;
      }
      condense( hash, watchers );
   } while ( uniteLeaves( hash, watchers ) );
   HashLeaf & leaf = *directory_.leafOf( hash );
   if ( leaf.size <= leaf.few ) { move( leaf, leaf.size + leaf.size / 2u, watchers ); }
}

/// Unites the lines of a leaf wherever two have few elements together.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::condense( std::uint64_t hash, Watchers watchers ) {
   HashLeaf & leaf = *directory_.leafOf( hash );
   HashLeaf::Ptr made = HashLeaf::remade( leaf, leaf.bits, leaf.count );
   Line * const lines = made->lines;
   unsigned n = 0;
   unsigned end = 0; // slots that the first n lines stand for
   for ( unsigned i = 0; i < leaf.count; ++i ) {
      end += made->widthOf( lines[i] );
      lines[n++] = lines[i];
      while ( n > 1 && lines[n - 2].depth == lines[n - 1].depth &&
              end % ( 2 * made->widthOf( lines[n - 1] ) ) == 0 &&
              unite( lines[n - 2], lines[n - 1] ) ) {
         --n;
      }
   }
   made->onlyFirst( n );
   if ( n < leaf.count ) { made = HashLeaf::remade( *made, made->bits, n ); }
   replaceLeaf( leaf, hash, std::move( made ), watchers );
}

/// Takes the entries of `buddy`, if they are few together. `line` then stands for both.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::unite( Line & line, Line & buddy ) {
   if ( line.isNothing() || buddy.isNothing() ) {
      if ( line.isNothing() ) { std::swap( line, buddy ); }
   } else if ( line.count + buddy.count > static_cast< int >( kUniteMax ) ) {
      return false; // trees among them
   }
   buddy.eachLive( [&]( unsigned entry ) { line.take( buddy, entry ); } );
   --line.depth;
   return true;
}

/// The leaf for `hash` and the one that is the other half of the same become one, if they are
/// small. Asking costs a walk through the directory.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::uniteLeaves( std::uint64_t hash, Watchers watchers ) {
   HashLeaf & leaf = *directory_.leafOf( hash );
   HashLeaf * const buddy = directory_.buddyOf( hash );
   if ( !buddy || !HashLeaf::canBeWhole( leaf, *buddy ) ) { return false; }
   const unsigned moving = leaf.size + buddy->size;
   if ( moving > Elements::kMaxWhole ) { return false; }
   const bool isOne = hash << ( leaf.depth - 1 ) >> 63;
   HashLeaf & whole =
      *( isOne ? HashLeaf::whole( *buddy, leaf ) : HashLeaf::whole( leaf, *buddy ) ).release();
   directory_.unite( hash, &whole );
   const unsigned capacity = Elements::capacityFor( moving + moving / 2 );
   gather( whole, Room( Elements::allocate( capacity ) ), capacity, watchers );
   for ( HashLeaf * const part : { &leaf, buddy } ) {
      forgetPlaces( *part, watchers );
      Elements::release( part->elements );
      HashLeaf::destroy( part );
   }
   return true;
}

} // namespace Quon::detail
