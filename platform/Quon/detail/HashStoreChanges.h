#pragma once

// The changes of shape of a HashStore. Included by HashStore.h only.
//
// Each touches the lines of one leaf, or of two, and at most one directory page: bounded work,
// however large the collection is.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Elements that were taken out, to be destroyed when every structure is in order again.
template< class K, class V, class Traits >
class HashStore< K, V, Traits >::Remains {
 public:
   Remains() = default;
   Remains( Remains && ) = default;
   Remains & operator=( Remains && ) = delete;
   ~Remains() {
      for ( Line & line : lines_ ) { destroyLine( line ); }
   }
   bool empty() const { return lines_.empty(); }
   /// All that is in `line`, which is empty afterwards.
   void take( Line & line ) {
      lines_.push_back( line );
      line.becomeNothing();
   }
   Line & addLine( unsigned capacity ) {
      Line & line = lines_.emplace_back();
      Elements::allocate( line, capacity );
      return line;
   }
   Tree & addTree( std::uint64_t hash ) {
      Line & line = lines_.emplace_back();
      line.elements = new Tree( hash );
      line.isTree = true;
      return Tree::of( line );
   }

 private:
   std::vector< Line > lines_;
};

template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::insertWithRoom( std::uint64_t hash, Watchers watchers,
                                                Node && fresh ) -> Node * {
   for ( ;; ) {
      HashLeaf * const leaf = directory_.leafOf( hash );
      if ( leaf == HashDirectory::emptyLeaf() ) {
         directory_.replace( hash, HashLeaf::first().release() );
         continue;
      }
      Line & line = leaf->lineOf( hash );
      if ( line.isTree && Tree::of( line ).hash == hash ) {
         Node & node =
            Tree::mutableElement( *Tree::of( line ).elements.insert( std::move( fresh ) ).first );
         ++size_;
         return &node;
      }
      if ( !line.isTree && line.capacity == 0 ) {
         // The first line of a collection has exactly as much room as its first element needs.
         Elements::allocate( line, leaf->count == 1 ? 1 : kFreshCapacity );
      } else if ( !line.isTree && !line.isFull() ) {
         return fillSlot( line, hash, watchers, [&fresh] { return std::move( fresh ); } );
      } else if ( !line.isTree && line.capacity < Line::kSlots ) {
         resize( line, line.capacity + 1u, watchers );
      } else {
         divide( hash, watchers );
      }
   }
}

/// Moves an element into a free slot of another line.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::moveNode( Line & from, unsigned slot, Line & to,
                                          Watchers watchers ) {
   Node & node = *Elements::at( from, slot );
   const unsigned toSlot = to.freeSlot();
   Node * const moved = new ( Elements::at( to, toSlot ) ) Node( std::move( node ) );
   to.addTaggedSlot( toSlot, from.tags[slot] );
   from.dropSlot( slot );
   std::destroy_at( &node );
   followNode( node, *moved, watchers );
}

/// Moves the elements to room of another size.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::resize( Line & line, unsigned capacity, Watchers watchers ) {
   Line other;
   Elements::allocate( other, capacity );
   other.depth = line.depth;
   line.eachLive( [&]( unsigned slot ) { moveNode( line, slot, other, watchers ); } );
   Elements::release( line );
   line = other;
   forgetPlaces( line, watchers );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::replaceLeaf( std::uint64_t hash, HashLeaf::Ptr with,
                                             Watchers watchers ) {
   HashLeaf * const old = directory_.leafOf( hash );
   forgetPlaces( *old, watchers );
   directory_.replace( hash, with.release() );
   HashLeaf::destroy( old );
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
            leaf.count < leaf.room ? leaf.room : leaf.count + leaf.count / 8 + 1u;
         replaceLeaf( hash, HashLeaf::remade( leaf, leaf.bits + isNarrow, room ), watchers );
      } else {
         return leaf;
      }
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divideLeaf( HashLeaf & leaf, std::uint64_t hash,
                                            Watchers watchers ) {
   HashLeaf::Ptr zero = HashLeaf::half( leaf, false );
   HashLeaf::Ptr one = HashLeaf::half( leaf, true );
   directory_.divide( hash, zero.get(), one.get() );
   zero.release();
   one.release();
   forgetPlaces( leaf, watchers );
   HashLeaf::destroy( &leaf );
}

/// Makes two lines of the one for `hash`, by the next hash bit. A full line in which every hash is
/// `hash` becomes a tree instead.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divide( std::uint64_t hash, Watchers watchers ) {
   Line & full = lineOf( hash );
   const std::uint64_t bit = full.depth == 64 ? 0 : std::uint64_t{ 1 } << ( 63 - full.depth );
   std::uint32_t ones = 0; // the slots that go to the new line
   bool allSame = !full.isTree;
   full.eachLive( [&]( unsigned slot ) {
      const std::uint64_t other = hashOf( Elements::at( full, slot )->fwkKey() );
      allSame &= other == hash;
      ones |= std::uint32_t{ ( other & bit ) != 0 } << slot;
   } );
   if ( allSame ) {
      makeTree( full, hash, watchers );
      return;
   }
   const bool allOnes = full.isTree ? ( Tree::of( full ).hash & bit ) != 0 : ones == full.live;

   HashLeaf & leaf = leafWithRoom( hash, watchers );
   Line half;
   if ( ones != 0 && !allOnes ) { Elements::allocate( half, Line::kSlots ); }
   Line & line = leaf.lineOf( hash );
   forgetPlaces( line, watchers );
   Line & other = leaf.divide( hash );
   half.depth = line.depth;
   if ( allOnes ) {
      std::swap( line, other );
   } else {
      for ( ; ones != 0; ones &= ones - 1 ) {
         moveNode( line, static_cast< unsigned >( std::countr_zero( ones ) ), half, watchers );
      }
      other = half;
   }
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::makeTree( Line & line, std::uint64_t hash, Watchers watchers ) {
   auto tree = std::make_unique< Tree >( hash );
   line.eachLive( [&]( unsigned slot ) {
      Node & from = *Elements::at( line, slot );
      const Node & to = *tree->elements.insert( std::move( from ) ).first;
      std::destroy_at( &from );
      followNode( from, to, watchers );
   } );
   forgetPlaces( line, watchers );
   Elements::release( line );
   line.elements = tree.release();
   line.isTree = true;
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::eraseFromTree( const Place & place, Watchers watchers ) {
   auto & elements = Tree::of( *place.line ).elements;
   elements.erase( place.inTree );
   --size_;
   if ( elements.empty() ) { tidy( place.hash, watchers ); }
}

/// After deletions that left few elements in the line for `hash`. An emptied line gives back its
/// room at once. The rest waits until half of a leaf's lines are like this: then one pass makes few
/// lines of many, at a fraction of what it would cost line by line. A leaf with no element left
/// does not wait, so that an emptied collection holds nothing.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::tidy( std::uint64_t hash, Watchers watchers ) {
   HashLeaf & leaf = *directory_.leafOf( hash );
   Line & line = leaf.lineOf( hash );
   bool isUrgent = false;
   if ( isEmpty( line ) ) {
      forgetPlaces( line, watchers );
      destroyLine( line );
      isUrgent = isEmpty( leaf );
   }
   if ( ++leaf.sparse * 2 < leaf.count && !isUrgent ) { return; }
   do { condense( hash, watchers ); } while ( uniteLeaves( hash, watchers ) );
   if ( size_ == 0 && directory_.isSingleLeaf() ) {
      destroyLeaf( directory_.leafOf( hash ) );
      directory_.clear();
   }
}

/// Unites the lines of a leaf wherever two have few elements together, and moves what is left alone
/// in too much room. So scattered survivors keep little alive. Does no more than an event loop can
/// bear at once; the next line of the leaf with few elements has the pass go on.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::condense( std::uint64_t hash, Watchers watchers ) {
   HashLeaf & leaf = *directory_.leafOf( hash );
   HashLeaf::Ptr made = HashLeaf::remade( leaf, leaf.bits, leaf.count );
   forgetPlaces( leaf, watchers );
   Line * const lines = made->lines;
   unsigned n = 0;
   unsigned end = 0;  // slots that the first n lines stand for
   unsigned work = 0; // elements in united lines
   for ( unsigned i = 0; i < leaf.count; ++i ) {
      const bool mayUnite = work < kMaxWork;
      if ( mayUnite && i + kLinesAhead < leaf.count ) {
         prefetchElements( lines[i + kLinesAhead] );
      }
      end += made->widthOf( lines[i] );
      lines[n++] = lines[i];
      while ( mayUnite && n > 1 && lines[n - 2].depth == lines[n - 1].depth &&
              end % ( 2 * made->widthOf( lines[n - 1] ) ) == 0 &&
              unite( lines[n - 2], lines[n - 1], watchers ) ) {
         --n;
         work += lines[n - 1].count;
      }
   }
   made->onlyFirst( n );
   if ( work < kMaxWork ) {
      for ( unsigned i = 0; i < n; ++i ) {
         if ( isSparse( lines[i].count, lines[i].capacity ) ) {
            resize( lines[i], lines[i].count * 3u / 2u, watchers );
         }
      }
   } else {
      made->sparse = leaf.sparse;
   }
   directory_.replace( hash, made.release() );
   HashLeaf::destroy( &leaf );
}

/// Takes the elements of `buddy`, if they are few together. `line` then stands for both.
template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::unite( Line & line, Line & buddy, Watchers watchers ) {
   const unsigned total = line.count + buddy.count;
   if ( !line.isNothing() && !buddy.isNothing() &&
        ( line.isTree || buddy.isTree || total > kUniteMax ) ) {
      return false;
   }
   if ( line.isNothing() || ( !buddy.isNothing() && buddy.capacity > line.capacity ) ) {
      std::swap( line, buddy );
   }
   if ( !buddy.isNothing() && line.capacity < total ) { resize( line, total, watchers ); }
   buddy.eachLive( [&]( unsigned slot ) { moveNode( buddy, slot, line, watchers ); } );
   Elements::release( buddy );
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
   const bool isOne = hash << ( leaf.depth - 1 ) >> 63;
   auto whole = isOne ? HashLeaf::whole( *buddy, leaf ) : HashLeaf::whole( leaf, *buddy );
   for ( HashLeaf * const part : { &leaf, buddy } ) {
      forgetPlaces( *part, watchers );
      HashLeaf::destroy( part );
   }
   directory_.unite( hash, whole.release() );
   return true;
}

template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::extract( const std::optional< K > & from,
                                         const std::optional< K > & to, Watchers watchers )
   -> Remains {
   Remains out;
   const std::uint64_t first = from ? hashOf( *from ) : 0;
   const std::uint64_t last = to ? hashOf( *to ) : ~std::uint64_t{ 0 };
   for ( std::uint64_t at = first; size_ != 0; ) {
      Line & line = lineOf( at );
      const std::uint64_t span = line.depth == 64 ? 0 : ~std::uint64_t{ 0 } >> line.depth;
      const std::uint64_t lineFirst = at & ~span;
      const std::uint64_t lineLast = at | span;
      const bool whole = ( !from || lineFirst > first ) && ( !to || lineLast < last );
      if ( line.isTree || line.capacity != 0 ) {
         if ( whole ) {
            const std::size_t count = line.isTree ? Tree::of( line ).elements.size() : line.count;
            forgetPlaces( line, watchers );
            out.take( line );
            size_ -= count;
         } else if ( line.isTree ) {
            extractFromTree( Tree::of( line ), from, to, out );
         } else {
            extractFrom( line, from, to, out, watchers );
         }
         tidy( at, watchers );
      }
      if ( lineLast >= last ) { break; }
      at = lineLast + 1;
   }
   return out;
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::extractFrom( Line & line, const std::optional< K > & from,
                                             const std::optional< K > & to, Remains & out,
                                             Watchers watchers ) {
   Line * taken = nullptr;
   line.eachLive( [&]( unsigned slot ) {
      const K & key = Elements::at( line, slot )->fwkKey();
      if ( ( from && isBefore( key, *from ) ) || ( to && !isBefore( key, *to ) ) ) { return; }
      if ( !taken ) { taken = &out.addLine( line.count ); }
      moveNode( line, slot, *taken, watchers );
      --size_;
   } );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::extractFromTree( Tree & tree, const std::optional< K > & from,
                                                 const std::optional< K > & to, Remains & out ) {
   // The tree's hash is at the edge of the range, or beyond it; the keys decide only at the edge.
   auto & elements = tree.elements;
   auto at = !from || tree.hash > hashOf( *from ) ? elements.begin()
             : tree.hash == hashOf( *from )       ? elements.lower_bound( *from )
                                                  : elements.end();
   const auto end = !to || tree.hash < hashOf( *to ) ? elements.end()
                    : tree.hash == hashOf( *to )     ? elements.lower_bound( *to )
                                                     : elements.begin();
   if ( at == end || at == elements.end() || end == elements.begin() ) { return; }
   Tree & taken = out.addTree( tree.hash );
   while ( at != end ) {
      taken.elements.insert( taken.elements.end(), elements.extract( at++ ) );
      --size_;
   }
}

} // namespace Quon::detail
