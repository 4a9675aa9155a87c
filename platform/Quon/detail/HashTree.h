#pragma once

#include <set>

#include "Quon/KeyTraits.h"
#include "Quon/detail/HashLine.h"

namespace Quon::detail {

/// Where elements go whose hashes are fully equal and too many for a line: a balanced tree by
/// key. Hash functions that bring this about make the collection logarithmic, no worse.
template< class Node, class Traits >
struct HashTree {
   /// Orders elements and probes by key.
   struct Before {
      using is_transparent = void;
      static decltype( auto ) keyOf( const Node & node ) { return node.fwkKey(); }
      template< class Probe >
      static const Probe & keyOf( const Probe & probe ) {
         return probe;
      }
      template< class A, class B >
      bool operator()( const A & a, const B & b ) const {
         return Traits::order( keyOf( a ), keyOf( b ) ) < 0;
      }
   };
   using Elements = std::set< Node, Before >;

   explicit HashTree( std::uint64_t theHash ) : hash( theHash ) {}

   static HashTree & of( const HashLine & line ) {
      return *static_cast< HashTree * >( line.elements );
   }

   /// The set is ordered by the key alone, which nobody changes.
   static Node & mutableElement( const Node & node ) { return const_cast< Node & >( node ); }

   std::uint64_t hash;
   Elements elements;
};

} // namespace Quon::detail
