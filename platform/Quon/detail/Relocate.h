#pragma once

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "Lumo/Relocatable.h"
#include "Quon/detail/Cursor.h"

namespace Quon::detail {

/// Moves `count` objects to raw memory elsewhere and leaves raw memory behind.
template< class T >
void relocate( T * first, unsigned count, T * to ) {
   if constexpr ( Lumo::isRelocatable< T > ) {
      if ( count != 0 ) {
         std::memcpy( static_cast< void * >( to ), static_cast< const void * >( first ),
                      count * sizeof( T ) );
      }
   } else {
      for ( unsigned i = 0; i < count; ++i ) {
         new ( to + i ) T( std::move( first[i] ) );
         std::destroy_at( first + i );
      }
   }
}

/// The same for elements of a collection: its cursors go with them.
template< class Node >
void relocate( Node * first, unsigned count, Node * to, Cursor< Node > * watchers ) {
   relocate( first, count, to );
   followMoved( watchers, first, count, to );
}

/// What relocates to here is destroyed when this is. There must be something.
template< class T >
struct Relocated {
   Relocated() {}
   ~Relocated() { std::destroy_at( &object ); }
   Relocated( const Relocated & ) = delete;
   Relocated & operator=( const Relocated & ) = delete;

   union {
      T object;
   };
};

} // namespace Quon::detail
