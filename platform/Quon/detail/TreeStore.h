#pragma once

#include "Quon/Hash.h"
#include "Quon/detail/Cursor.h"
#include "Quon/detail/Element.h"

#include <cstddef>
#include <optional>
#include <set>
#include <utility>

namespace Quon::detail {

/// Elements in a balanced tree, by (hash, key).
template< class K, class V, class Traits >
class TreeStore {
 public:
   using Key = K;
   using Value = V;
   using Node = Element< K, V, Traits >;
   using NodePtr = const Node *;
   using Watchers = Cursor< Node > *;

   template< class A, class B >
   static bool isBefore( const A & a, const B & b ) {
      const auto ha = Traits::hash( a, hashSeed() );
      const auto hb = Traits::hash( b, hashSeed() );
      return ha != hb ? ha < hb : Traits::order( a, b ) < 0;
   }

   struct Before {
      using is_transparent = void;
      static const K & keyOf( const Node & node ) { return node.fwkKey(); }
      template< class P >
      static const P & keyOf( const P & probe ) {
         return probe;
      }
      template< class A, class B >
      bool operator()( const A & a, const B & b ) const {
         return isBefore( keyOf( a ), keyOf( b ) );
      }
   };
   using Tree = std::set< Node, Before >;
   struct Place {
      typename Tree::iterator at;
      bool found;
      explicit operator bool() const { return found; }
   };

   std::size_t size() const { return tree_.size(); }

   template< class P >
   NodePtr find( const P & probe ) const {
      const auto at = tree_.find( probe );
      return at == tree_.end() ? nullptr : &*at;
   }
   template< class P >
   Node * findMutable( const P & probe ) {
      return const_cast< Node * >( find( probe ) );
   }
   template< class P >
   Place locate( const P & probe ) {
      const auto at = tree_.find( probe );
      return { at, at != tree_.end() };
   }
   Node & at( const Place & place ) { return const_cast< Node & >( *place.at ); }

   template< class Make >
   std::pair< Node *, bool > insert( const K & key, Watchers, Make make ) {
      if ( Node * const node = findMutable( key ) ) { return { node, false }; }
      return { const_cast< Node * >( &*tree_.insert( make() ).first ), true };
   }
   void erase( const Place & place, Watchers ) { tree_.erase( place.at ); }

   Tree extract( const std::optional< K > & from, const std::optional< K > & to, Watchers ) {
      auto at = from ? tree_.lower_bound( *from ) : tree_.begin();
      const auto end = to ? tree_.lower_bound( *to ) : tree_.end();
      Tree out;
      while ( at != end ) { out.insert( out.end(), tree_.extract( at++ ) ); }
      return out;
   }
   template< class F >
   void forEach( F f ) {
      for ( const Node & node : tree_ ) { f( const_cast< Node & >( node ) ); }
   }

   using Where = Cursor< Node >;
   void first( Where & c ) const { stand( c, tree_.begin() ); }
   template< class P >
   void notBefore( Where & c, const P & key ) const {
      stand( c, tree_.lower_bound( key ) );
   }
   template< class P >
   void after( Where & c, const P & key ) const {
      stand( c, tree_.upper_bound( key ) );
   }
   void next( Where & c ) const { after( c, c.node->fwkKey() ); }

 private:
   void stand( Where & c, typename Tree::iterator at ) const {
      c.node = at == tree_.end() ? nullptr : &*at;
      c.leaf = nullptr;
   }
   Tree tree_;
};

} // namespace Quon::detail
