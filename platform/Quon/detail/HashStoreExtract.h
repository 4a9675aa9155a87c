#pragma once

// Taking many elements out of a HashStore. Included by HashStore.h only.
//
// They go to a `Remains`, leaf by leaf or line by line, and everything is in order again before one
// of them dies.

#include "Quon/detail/HashStore.h"

namespace Quon::detail {

/// Elements that were taken out, to be destroyed when every structure is in order again.
template< class K, class V, class Traits >
class HashStore< K, V, Traits >::Remains {
 public:
   bool empty() const { return lots_.empty() && trees_.empty(); }
   /// Takes in, of at most `count` elements, those that `f` hands to its argument: moves each away
   /// and leaves raw memory. They stay where they are from then on.
   template< class F >
   void takeLot( unsigned count, F f ) {
      Lot lot( count );
      f( [&lot]( Node & node ) { return lot.take( node ); } );
      if ( lot.count != 0 ) { lots_.push_back( std::move( lot ) ); }
   }
   void takeTree( std::unique_ptr< Tree > tree ) { trees_.push_back( std::move( tree ) ); }

 private:
   struct Lot {
      explicit Lot( unsigned capacity ) : room( Elements::allocate( capacity ) ) {}
      Lot( Lot && other ) noexcept
         : room( std::move( other.room ) ), count( std::exchange( other.count, 0 ) ) {}
      ~Lot() {
         for ( unsigned i = 0; i < count; ++i ) {
            std::destroy_at( Elements::inRoom( room.get(), i ) );
         }
      }
      Node * take( Node & node ) {
         Node * const to = Elements::inRoom( room.get(), count++ );
         relocate( &node, 1, to );
         return to;
      }

      Room room;
      unsigned count = 0;
   };

   std::vector< Lot > lots_;
   std::vector< std::unique_ptr< Tree > > trees_;
};

template< class K, class V, class Traits >
auto HashStore< K, V, Traits >::extract( const std::optional< K > & from,
                                         const std::optional< K > & to, Watchers watchers )
   -> Remains {
   Remains out;
   const std::uint64_t first = from ? hashOf( *from ) : 0;
   const std::uint64_t last = to ? hashOf( *to ) : ~std::uint64_t{ 0 };
   const auto inRange = [&]( const K & key ) {
      return !( from && isBefore( key, *from ) ) && !( to && !isBefore( key, *to ) );
   };
   for ( std::uint64_t at = first; size_ != 0; ) {
      HashLeaf & leaf = *directory_.leafOf( at );
      Line & line = leaf.lineOf( at );
      const std::uint64_t span = line.depth == 64 ? 0 : ~std::uint64_t{ 0 } >> line.depth;
      const std::uint64_t lineLast = at | span;
      if ( !line.isNothing() ) {
         const std::size_t before = size_;
         if ( line.state == Line::isTree ) {
            extractFromTree( Tree::of( line ), from, to, out );
            fellEmptyTree( leaf, line );
         } else {
            out.takeLot( line.count,
                         [&]( auto take ) { extractFrom( leaf, line, inRange, take, watchers ); } );
         }
         if ( size_ != before && leaf.size <= leaf.few ) { tidy( at, watchers ); }
      }
      if ( lineLast >= last ) { break; }
      at = lineLast + 1;
   }
   return out;
}

template< class K, class V, class Traits >
template< class Unwanted >
auto HashStore< K, V, Traits >::extractIf( std::uint64_t & at, const Unwanted & unwanted,
                                           Watchers watchers ) -> Remains {
   Remains out;
   const std::uint64_t here = at;
   HashLeaf & leaf = *directory_.leafOf( here );
   if ( !nextHash( at, leaf.depth ) ) { at = 0; }
   if ( &leaf == HashDirectory::emptyLeaf() ) { return out; }
   out.takeLot( leaf.size, [&]( auto take ) {
      for ( unsigned i = 0; i < leaf.count; ++i ) {
         if ( i + kLinesAhead < leaf.count ) { prefetchElements( leaf.lines[i + kLinesAhead] ); }
         extractFrom( leaf, leaf.lines[i], unwanted, take, watchers );
      }
   } );
   eachLine( leaf, [&]( Line & line ) {
      if ( line.state != Line::isTree ) { return; }
      auto & elements = Tree::of( line ).elements;
      auto taken = std::make_unique< Tree >( Tree::of( line ).hash );
      for ( auto i = elements.begin(); i != elements.end(); ) {
         const auto current = i++;
         if ( unwanted( current->fwkKey() ) ) { moveTo( *taken, elements, current ); }
      }
      if ( !taken->elements.empty() ) { out.takeTree( std::move( taken ) ); }
      fellEmptyTree( leaf, line );
   } );
   if ( !out.empty() && leaf.size <= leaf.few ) { tidy( here, watchers ); }
   return out;
}

/// Out of a line that is no tree, to where `take` takes them.
template< class K, class V, class Traits >
template< class Unwanted, class Take >
void HashStore< K, V, Traits >::extractFrom( HashLeaf & leaf, Line & line,
                                             const Unwanted & unwanted, const Take & take,
                                             Watchers watchers ) {
   line.eachLive( [&]( unsigned entry ) {
      Node & node = *Elements::at( line, entry );
      if ( !unwanted( std::as_const( node ).fwkKey() ) ) { return; }
      followNode( node, *take( node ), watchers );
      drop( leaf, line, entry );
   } );
}

/// The element goes to the end of another tree.
template< class K, class V, class Traits >
void HashStore< K, V, Traits >::moveTo( Tree & tree, typename Tree::Elements & from,
                                        typename Tree::Elements::iterator at ) {
   tree.elements.insert( tree.elements.end(), from.extract( at ) );
   --size_;
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
   auto taken = std::make_unique< Tree >( tree.hash );
   while ( at != end ) { moveTo( *taken, elements, at++ ); }
   out.takeTree( std::move( taken ) );
}

} // namespace Quon::detail
