#pragma once

// The changes of shape of a HashStore. Included by HashStore.h only.
//
// Each touches one leaf, or two neighbours, and at most one directory page: bounded work, however
// large the collection is.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Leaves and elements that were taken out, to be destroyed when every structure is in order again.
template< class K, class V, class Traits >
class HashStore< K, V, Traits >::Remains {
 public:
   Remains() = default;
   Remains( Remains && ) = default;
   Remains & operator=( Remains && ) = delete;
   ~Remains() {
      for ( HashLeaf * leaf : leaves_ ) { destroyLeaf( leaf ); }
   }
   bool empty() const { return leaves_.empty(); }
   void add( HashLeaf * leaf ) { leaves_.push_back( leaf ); }

 private:
   std::vector< HashLeaf * > leaves_;
};

template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::insertWithRoom( std::uint64_t hash, Watchers watchers,
                                                Node && fresh ) -> Node * {
   for ( ;; ) {
      HashLeaf * const leaf = directory_.leafOf( hash );
      if ( leaf->isTree ) {
         Tree & tree = *treeOf( leaf );
         if ( tree.hash == hash ) {
            ++size_;
            return &Tree::mutableElement( *tree.elements.insert( std::move( fresh ) ).first );
         }
         divide( leaf, hash, watchers );
      } else if ( leaf->capacity == 0 ) {
         // The first segment of a collection is exactly as small as its first element.
         const unsigned capacity = directory_.isSingleLeaf() ? 1 : kFreshCapacity;
         directory_.replace( hash, Segment::create( capacity, leaf->depth ) );
      } else if ( Segment & segment = *segmentOf( leaf ); !segment.isFull() ) {
         return fillSlot( segment, hash, watchers, [&fresh] { return std::move( fresh ); } );
      } else if ( segment.capacity < Segment::kMaxCapacity ) {
         resize( segment, hash, segment.capacity + 1u, watchers );
      } else {
         divide( leaf, hash, watchers );
      }
   }
}

/// Moves an element into a free slot of `to`. Its old slot is left to the caller.
template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::moveNode( Node & from, Segment & to, std::uint64_t hash,
                                          Watchers watchers ) -> Node * {
   const unsigned slot = to.freeSlot( hash );
   Node * const node = new ( to.at( slot ) ) Node( std::move( from ) );
   to.addSlot( slot, hash );
   std::destroy_at( &from );
   followNode( from, *node, watchers );
   return node;
}

/// A segment of another capacity takes the place of `segment`. Its order, if known, is kept.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::resize( Segment & segment, std::uint64_t hash, unsigned capacity,
                                        Watchers watchers ) {
   Segment & other = *Segment::create( capacity, segment.depth );
   const auto move = [&]( unsigned slot ) {
      Node & node = *segment.at( slot );
      return moveNode( node, other, hashOf( node.fwkKey() ), watchers );
   };
   const unsigned ordered = segment.ordered;
   if ( ordered == HashLeaf::kUnsorted ) {
      segment.eachLive( move );
      forgetPlaces( &segment, watchers );
   } else {
      unsigned n = 0;
      for ( unsigned i = 0; i < ordered; ++i ) {
         if ( const unsigned slot = segment.order()[i]; segment.isLive( slot ) ) {
            const Node * const moved = move( slot );
            other.order()[n++] = static_cast< std::uint8_t >( moved - other.elements() );
         }
         for ( Where * c = watchers; c; c = c->nextRegistered ) {
            if ( c->leaf != &segment || c->at != static_cast< int >( i ) ) { continue; }
            c->leaf = static_cast< HashLeaf * >( &other );
            c->at = static_cast< int >( n ) - 1; // on it, or behind the last before it
         }
      }
      other.ordered = static_cast< std::uint8_t >( n );
      for ( Where * c = watchers; c; c = c->nextRegistered ) { // those before the first element
         if ( c->leaf == &segment ) { c->leaf = static_cast< HashLeaf * >( &other ); }
      }
   }
   directory_.replace( hash, &other );
   Segment::release( &segment );
}

/// Makes two leaves of one, by the next hash bit. A full segment in which every hash is `hash`
/// becomes a tree instead.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divide( HashLeaf * leaf, std::uint64_t hash, Watchers watchers ) {
   const unsigned depth = leaf->depth + 1u;
   const std::uint64_t bit = depth > 64 ? 0 : std::uint64_t{ 1 } << ( 64 - depth );
   if ( leaf->isTree ) {
      divideOneSided( leaf, hash, treeOf( leaf )->hash & bit );
      return;
   }
   Segment & segment = *segmentOf( leaf );
   std::array< std::uint64_t, Segment::kMaxCapacity > hashes;
   unsigned ones = 0;
   unsigned same = 0;
   segment.eachLive( [&]( unsigned slot ) {
      hashes[slot] = hashOf( segment.at( slot )->fwkKey() );
      ones += ( hashes[slot] & bit ) != 0;
      same += hashes[slot] == hash;
   } );
   const unsigned count = segment.count;
   if ( same == count ) {
      makeTree( segment, hash, watchers );
   } else if ( ones == 0 || ones == count ) {
      divideOneSided( leaf, hash, ones != 0 );
   } else {
      // The zeros stay where they are. A little room for what is about to come.
      Segment & other = *Segment::create( ones + kHalfHeadroom, depth );
      segment.eachLive( [&]( unsigned slot ) {
         if ( ( hashes[slot] & bit ) == 0 ) { return; }
         segment.dropSlot( slot );
         moveNode( *segment.at( slot ), other, hashes[slot], watchers );
      } );
      bringHome( segment, hashes.data(), watchers );
      forgetPlaces( leaf, watchers );
      directory_.divide( hash, leaf, &other );
   }
}

/// Now that there is room, elements that had to go to another group return to their own.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::bringHome( Segment & segment, const std::uint64_t * hashes,
                                           Watchers watchers ) {
   segment.clearOverflow();
   segment.eachLive( [&]( unsigned slot ) {
      const unsigned home = segment.homeOf( hashes[slot] );
      if ( slot / 16 == home ) { return; }
      segment.dropSlot( slot );
      if ( segment.freeSlot( hashes[slot] ) / 16 == home ) {
         moveNode( *segment.at( slot ), segment, hashes[slot], watchers );
      } else {
         segment.addSlot( slot, hashes[slot] ); // no room there yet
      }
   } );
}

/// All elements stay in `leaf`, which now stands for one half; the other half is empty.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::divideOneSided( HashLeaf * leaf, std::uint64_t hash, bool one ) {
   const unsigned depth = leaf->depth + 1u;
   HashLeaf * const other = HashDirectory::emptyLeaf( depth );
   directory_.divide( hash, one ? other : leaf, one ? leaf : other );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::makeTree( Segment & segment, std::uint64_t hash,
                                          Watchers watchers ) {
   Tree * const tree = new Tree( hash, segment.depth );
   segment.eachLive( [&]( unsigned slot ) {
      Node & from = *segment.at( slot );
      const Node & to = *tree->elements.insert( std::move( from ) ).first;
      std::destroy_at( &from );
      followNode( from, to, watchers );
   } );
   forgetPlaces( &segment, watchers );
   directory_.replace( hash, tree );
   Segment::release( &segment );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::eraseFromTree( const Place & place, Watchers watchers ) {
   Tree & tree = *treeOf( place.leaf );
   tree.elements.erase( place.inTree );
   --size_;
   if ( tree.elements.empty() ) { tidy( place.hash, watchers ); }
}

/// After deletions: an emptied leaf is given back, neighbours with few elements become one, and a
/// segment that is all but empty shrinks. So scattered survivors keep little alive.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::tidy( std::uint64_t hash, Watchers watchers ) {
   for ( bool united = false;; ) {
      HashLeaf * leaf = directory_.leafOf( hash );
      const bool empty = leaf->isTree ? treeOf( leaf )->elements.empty() : leaf->live == 0;
      if ( empty && ( leaf->isTree || leaf->capacity != 0 ) ) {
         forgetPlaces( leaf, watchers );
         HashLeaf * const nothing = HashDirectory::emptyLeaf( leaf->depth );
         directory_.replace( hash, nothing );
         destroyLeaf( leaf );
         leaf = nothing;
      }
      if ( leaf->isTree ) { return; }
      const unsigned count = countOf( leaf );
      if ( ( united || asksNeighbour( count ) ) && uniteWithBuddy( leaf, hash, watchers ) ) {
         united = true;
         continue;
      }
      if ( isSparse( count, leaf->capacity ) ) {
         resize( *segmentOf( leaf ), hash, count + count / 2, watchers );
      }
      return;
   }
}

template< class K, class V, class Traits >
bool HashStore< K, V, Traits >::uniteWithBuddy( HashLeaf * leaf, std::uint64_t hash,
                                                Watchers watchers ) {
   HashLeaf * const buddy = directory_.buddyOf( hash );
   if ( !buddy ) { return false; }
   const unsigned depth = leaf->depth - 1u;
   const auto isNothing = []( HashLeaf * l ) { return l->capacity == 0 && !l->isTree; };
   if ( isNothing( leaf ) || isNothing( buddy ) ) {
      HashLeaf * const rest = isNothing( leaf ) ? buddy : leaf;
      HashLeaf * const merged = isNothing( rest ) ? HashDirectory::emptyLeaf( depth ) : rest;
      if ( merged == rest ) { rest->depth = static_cast< std::uint8_t >( depth ); }
      directory_.unite( hash, merged );
      return true;
   }
   if ( buddy->isTree || countOf( leaf ) + countOf( buddy ) > kMergeMax ) { return false; }

   const unsigned total = countOf( leaf ) + countOf( buddy );
   const auto into = [&]( Segment & to, HashLeaf * from ) {
      Segment & source = *segmentOf( from );
      source.eachLive( [&]( unsigned slot ) {
         Node & node = *source.at( slot );
         moveNode( node, to, hashOf( node.fwkKey() ), watchers );
      } );
      forgetPlaces( from, watchers );
      Segment::release( from );
   };
   HashLeaf * merged = leaf->capacity < buddy->capacity ? buddy : leaf;
   HashLeaf * const other = merged == leaf ? buddy : leaf;
   forgetPlaces( merged, watchers );
   if ( merged->capacity < total ) {
      Segment * const larger = Segment::create( total, depth );
      into( *larger, merged );
      merged = larger;
   }
   into( *segmentOf( merged ), other );
   merged->depth = static_cast< std::uint8_t >( depth );
   directory_.unite( hash, merged );
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
      HashLeaf * const leaf = directory_.leafOf( at );
      const std::uint64_t span = leaf->depth == 64 ? 0 : ~std::uint64_t{ 0 } >> leaf->depth;
      const std::uint64_t leafFirst = at & ~span;
      const std::uint64_t leafLast = at | span;
      const bool whole = ( !from || leafFirst > first ) && ( !to || leafLast < last );
      if ( leaf->isTree || leaf->capacity != 0 ) {
         if ( whole ) {
            size_ -= leaf->isTree ? treeOf( leaf )->elements.size() : countOf( leaf );
            forgetPlaces( leaf, watchers );
            directory_.replace( at, HashDirectory::emptyLeaf( leaf->depth ) );
            out.add( leaf );
         } else if ( leaf->isTree ) {
            extractFrom( *treeOf( leaf ), from, to, out );
         } else {
            extractFrom( *segmentOf( leaf ), from, to, out, watchers );
         }
         tidy( at, watchers );
      }
      if ( leafLast >= last ) { break; }
      at = leafLast + 1;
   }
   return out;
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::extractFrom( Segment & segment, const std::optional< K > & from,
                                             const std::optional< K > & to, Remains & out,
                                             Watchers watchers ) {
   Segment * taken = nullptr;
   segment.eachLive( [&]( unsigned slot ) {
      Node & node = *segment.at( slot );
      const K & key = node.fwkKey();
      if ( ( from && isBefore( key, *from ) ) || ( to && !isBefore( key, *to ) ) ) { return; }
      if ( !taken ) {
         taken = Segment::create( segment.count, 0 );
         out.add( taken );
      }
      dropSlot( segment, &node );
      moveNode( node, *taken, 0, watchers );
   } );
}

template< class K, class V, class Traits >
void HashStore< K, V, Traits >::extractFrom( Tree & tree, const std::optional< K > & from,
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
   Tree * const taken = new Tree( tree.hash, 0 );
   out.add( taken );
   while ( at != end ) {
      taken->elements.insert( taken->elements.end(), elements.extract( at++ ) );
      --size_;
   }
}

} // namespace Quon::detail
