#pragma once

#include "VeloSdkRpc/detail/ScanningSm.h"

namespace VeloSdkRpc::detail {

/// A child state machine with machines below it: one for each element of the collection that it
/// scans.
///
/// `Derived` names the collection, `const auto & input() const`, and whether an element without an
/// entity is passed over, `static constexpr bool kIgnoresNull`.
///
/// A machine is made, put into the map, made to listen, and only then started, because its first
/// scan may already cause anything to happen to the input, this map included. The same holds at the
/// other end: a machine that is being taken down stays in the map, deaf, until its entries have
/// been withdrawn. After both, the input is looked at again. (A machine that somebody else has made
/// deaf is a machine like any other.)
template< class Derived, class Parent, class En, class Key, class Child >
class ParentSm : public ScanningSm< Derived, Parent, En, Key > {
   using Base = ScanningSm< Derived, Parent, En, Key >;

 public:
   using Children = Quon::HashMap2018< Key, Lumo::Ptr< Child > >;
   using ChildEnPtr = typename Child::EnPtr;

   ~ParentSm() override { childrenOrphaned(); }

   /// Whether changes of the input are heard, here and below.
   void hasNotificationActiveIs( bool active ) {
      if ( !this->listenIs( active ) ) { return; }
      for ( auto at = children_.iterator(); at; at.advance() ) {
         at.value()->hasNotificationActiveIs( active );
      }
   }

   /// Withdraws everything that was derived from the input, child by child, and lets go of the
   /// children.
   void doDeleteAll() {
      if ( !this->attached() ) { return; }
      const Lumo::Ptr< Derived > self( &derived() );
      LUMO_TRACE( this->traceHandle(), 9, "doDeleteAll" );
      FirstException broken;
      for ( auto at = children_.iterator(); at; at.advance() ) {
         const Key key = at.key();
         broken.guard( [&] { childTakenDown( key ); } );
      }
      broken.rethrow();
   }

 protected:
   using Base::Base;

   /// What becomes of an element without an entity.
   enum class NullElement { refused, passedOver };

   /// Makes the children agree with the input as far as `key` is concerned.
   void childMaintained( const Key & key, NullElement ifNull = NullElement::refused ) {
      if ( !this->attached() ) { return; }
      LUMO_TRACE( this->traceHandle(), 8, "k: {}", key );
      FirstException broken;
      for ( bool again = true; again && this->attached(); ) {
         const auto * element = derived().input()[key];
         const ChildEnPtr en = element ? element->value() : nullptr;
         again = !element;
         if ( !element ) {
            broken.guard( [&] { again = childTakenDown( key ); } );
         } else if ( en || ( !Derived::kIgnoresNull && ifNull == NullElement::refused ) ) {
            broken.guard( [&] { again = childIs( key, en ); } );
         } else if ( !Derived::kIgnoresNull ) {
            LUMO_TRACE( this->traceHandle(), 6, "k: {} has no entity, passing over it", key );
         }
      }
      broken.rethrow();
   }

   Lumo::Ptr< Child > child( const Key & key ) const {
      const auto * element = children_[key];
      return element ? element->value() : nullptr;
   }

   /// The child for `en` under `key`; true if it is new.
   bool childIs( const Key & key, const ChildEnPtr & en ) {
      if ( !en ) { Quon::throwMutatorArgNullPointerException( Derived::kChildMap, "en" ); }
      if ( const Lumo::Ptr< Child > present = child( key ) ) {
         if ( isLeaving( *present ) ) { return false; } // Looked at again when it has left.
         if ( present->en() != en ) {
            Quon::Impl::throwMutatorReinstantiating( Derived::kChildMap );
         }
         present->parentIs( &derived() );
         return false;
      }
      const auto made = Lumo::makeNode< Child >( en, &derived() );
      children_.memberIs( key, made );
      made->hasNotificationActiveIs( this->hasNotificationActive() );
      made->handleInitialized();
      return true;
   }

   /// Lets go of a child, or all; what they contributed stays.
   void childDel( const Key & key ) {
      if ( const Lumo::Ptr< Child > gone = child( key ) ) { gone->parentIs( nullptr ); }
      children_.deleteMember( key );
   }
   void childDelAll() {
      childrenOrphaned();
      children_.memberDelAll();
   }

   /// One item of the scan: makes the child agree with the input and scans below it; false if that
   /// scan stopped before its end. An element without an entity is no error here: whoever made it
   /// was told, and there is nobody else to tell.
   bool childScanned( const Key & key, FirstException & broken ) {
      broken.guard( [&] { childMaintained( key, NullElement::passedOver ); } );
      if ( const Lumo::Ptr< Child > scanned = child( key ) ) {
         broken.guard( [&] { scanned->doInputScan0(); } );
      }
      const Lumo::Ptr< Child > now = child( key );
      return !now || now->inputScanComplete0();
   }

 private:
   Derived & derived() { return static_cast< Derived & >( *this ); }

   /// A child that is being taken down, for as long as that takes. They are nested, and few.
   class Leaving {
    public:
      Leaving( const Child & child, const Leaving *& innermost )
         : child_( child ), innermost_( innermost ), outer_( innermost ) {
         innermost_ = this;
      }
      ~Leaving() { innermost_ = outer_; }
      Leaving( const Leaving & ) = delete;
      Leaving & operator=( const Leaving & ) = delete;

      const Leaving * outer() const { return outer_; }
      bool is( const Child & child ) const { return &child == &child_; }

    private:
      const Child & child_;
      const Leaving *& innermost_;
      const Leaving * const outer_;
   };

   bool isLeaving( const Child & child ) const {
      const Leaving * one = leaving_;
      while ( one && !one->is( child ) ) { one = one->outer(); }
      return one;
   }

   void childrenOrphaned() {
      for ( const auto & element : children_ ) { element.value()->parentIs( nullptr ); }
   }

   /// Withdraws what the child under `key` contributed and removes it; true if there was one.
   bool childTakenDown( const Key & key ) {
      const Lumo::Ptr< Child > gone = child( key );
      if ( !gone || isLeaving( *gone ) ) { return false; }
      const Leaving leaving( *gone, leaving_ );
      gone->quonDoZombieReactors( true );
      FirstException broken;
      broken.guard( [&] { gone->doDeleteAll(); } );
      if ( child( key ) == gone ) { childDel( key ); }
      broken.rethrow();
      return true;
   }

   Children children_;
   const Leaving * leaving_ = nullptr; ///< The innermost one.
};

} // namespace VeloSdkRpc::detail
