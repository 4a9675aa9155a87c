#pragma once

#include <memory>
#include <new>
#include <utility>

#include "Quon/detail/Cursor.h"
#include "Quon/detail/Element.h"
#include "Quon/detail/Relocate.h"

namespace Quon::detail {

/// A few elements side by side, in the order in which they came: found by looking at all of them.
///
/// Adding moves nothing but to a larger block, erasing one element: the last one into the gap.
template< class K, class V, class Traits >
class FewStore {
 public:
   using Node = Element< K, V, Traits >;
   using Watchers = Cursor< Node > *;
   static constexpr unsigned kMost = 32;

   FewStore() = default;
   FewStore( FewStore && other ) noexcept
      : nodes_( std::exchange( other.nodes_, nullptr ) ),
        count_( std::exchange( other.count_, 0 ) ),
        capacity_( std::exchange( other.capacity_, 0 ) ) {}
   FewStore & operator=( FewStore && other ) noexcept {
      std::swap( nodes_, other.nodes_ );
      std::swap( count_, other.count_ );
      std::swap( capacity_, other.capacity_ );
      return *this;
   }
   ~FewStore() {
      std::destroy_n( nodes_, count_ );
      ::operator delete( nodes_ );
   }

   unsigned size() const { return count_; }
   bool isFull() const { return count_ == kMost; }

   Node * find( K key ) const {
      for ( unsigned i = 0; i < count_; ++i ) {
         if ( nodes_[i].fwkKey() == key ) { return nodes_ + i; }
      }
      return nullptr;
   }
   /// The first in the order of the keys that is not before `key`; null if there is none.
   Node * notBefore( K key ) const {
      Node * first = nullptr;
      for ( unsigned i = 0; i < count_; ++i ) {
         const K here = nodes_[i].fwkKey();
         if ( here >= key && ( !first || here < first->fwkKey() ) ) { first = nodes_ + i; }
      }
      return first;
   }

   /// Adds the element that `make()` makes, whose key is absent; there must be room. `make` may
   /// refer to an element of this store.
   template< class Make >
   Node * add( Watchers watchers, Make make ) {
      if ( count_ < capacity_ ) {
         new ( nodes_ + count_ ) Node( make() );
      } else {
         Node fresh = make();
         grow( watchers );
         new ( nodes_ + count_ ) Node( std::move( fresh ) );
      }
      return nodes_ + count_++;
   }

   /// Destroys `node`. The block goes with its last element.
   void erase( Node * node, Watchers watchers ) {
      std::destroy_at( node );
      close( node, watchers );
   }

   /// Moves the elements that `wanted` names to `out`.
   template< class Wanted >
   void extract( FewStore & out, Watchers watchers, Wanted wanted ) {
      for ( unsigned i = 0; i < count_; ) {
         if ( wanted( nodes_[i].fwkKey() ) ) {
            Node * const from = nodes_ + i;
            Node * const to = out.add( watchers, [from] { return std::move( *from ); } );
            followMoved( watchers, from, 1, to );
            erase( from, watchers );
         } else {
            ++i;
         }
      }
   }

   template< class F >
   void forEach( F f ) const {
      for ( unsigned i = 0; i < count_; ++i ) { f( nodes_[i] ); }
   }

 private:
   void grow( Watchers watchers ) {
      capacity_ = capacity_ == 0 ? 4 : kMost;
      Node * const room = static_cast< Node * >( ::operator new( capacity_ * sizeof( Node ) ) );
      relocate( nodes_, count_, room, watchers );
      ::operator delete( std::exchange( nodes_, room ) );
   }
   void close( Node * gap, Watchers watchers ) {
      Node * const last = nodes_ + --count_;
      if ( gap != last ) { relocate( last, 1, gap, watchers ); }
      if ( count_ == 0 ) {
         ::operator delete( std::exchange( nodes_, nullptr ) );
         capacity_ = 0;
      }
   }

   static_assert( alignof( Node ) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__ );
   Node * nodes_ = nullptr;
   unsigned count_ = 0;
   unsigned capacity_ = 0;
};

} // namespace Quon::detail
