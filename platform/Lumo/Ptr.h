#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "Lumo/Node.h"

namespace Lumo {

/// Intrusive owning pointer to a node. Null is allowed. A copy takes a reference, a move does not.
///
/// Thread     one `Ptr` by one thread at a time; the node that several point to is shared freely
/// Re-entry   dropping the last reference destroys the node, whose destructor may do anything, also
///            look at the `Ptr` that was assigned to: it holds its new value already
template< class T >
class Ptr {
 public:
   using element_type = T;
   static constexpr bool kRelocatable = true;

   Ptr() = default;
   Ptr( std::nullptr_t ) {}

   /// Takes one more reference on `node`.
   explicit Ptr( T * node ) : node_( node ) { take(); }

   Ptr( const Ptr & other ) : node_( other.node_ ) { take(); }
   Ptr( Ptr && other ) noexcept : node_( other.release() ) {}

   template< class U >
      requires std::is_convertible_v< U *, T * >
   Ptr( const Ptr< U > & other ) : node_( other.get() ) {
      take();
   }
   template< class U >
      requires std::is_convertible_v< U *, T * >
   Ptr( Ptr< U > && other ) noexcept : node_( other.release() ) {}

   ~Ptr() { drop( node_ ); }

   Ptr & operator=( Ptr other ) noexcept {
      T * old = std::exchange( node_, other.release() );
      drop( old );
      return *this;
   }

   /// Takes over the reference that the caller holds; a new node is born with one.
   static Ptr adopt( T * node ) {
      node->referenceAdopted();
      Ptr p;
      p.node_ = node;
      return p;
   }

   /// Gives the reference to the caller and becomes null.
   T * release() noexcept { return std::exchange( node_, nullptr ); }

   T * get() const { return node_; }
   T * operator->() const { return node_; }
   T & operator*() const { return *node_; }
   explicit operator bool() const { return node_ != nullptr; }

   template< class U >
   bool operator==( const Ptr< U > & other ) const {
      return node_ == other.get();
   }
   bool operator==( std::nullptr_t ) const { return node_ == nullptr; }

 private:
   void take() const {
      if ( node_ ) { node_->referenceTaken(); }
   }
   static void drop( T * node ) {
      if ( node ) { node->referenceDropped(); }
   }

   T * node_ = nullptr;
};

/// Makes a node and adopts its first reference.
template< class T, class... Args >
Ptr< T > makeNode( Args &&... args ) {
   return Ptr< T >::adopt( ::new T( std::forward< Args >( args )... ) );
}

/// The same node as a `T`, or null when it is of another type.
template< class T, class U >
Ptr< T > dynamicPtrCast( const Ptr< U > & p ) {
   return Ptr< T >( dynamic_cast< T * >( p.get() ) );
}

} // namespace Lumo

template< class T >
struct std::hash< Lumo::Ptr< T > > {
   std::size_t operator()( const Lumo::Ptr< T > & p ) const {
      return std::hash< T * >()( p.get() );
   }
};
