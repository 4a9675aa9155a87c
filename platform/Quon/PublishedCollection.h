#pragma once

#include <optional>
#include <type_traits>

#include "Lumo/Ptr.h"
#include "Lumo/ScopeExit.h"
#include "Quon/Entity.h"
#include "Quon/HashMap2018.h"

namespace Quon {

/// A collection attribute of an entity: values `V` by `Key`, every change published under
/// `attributeId`. `V` is a value type with `==`; one that carries its own key has `Traits` that say
/// so (see KeyTraits.h).
///
/// Owner      `owner`, which has it as a member
/// Thread     event loop only
/// Publishes  once per changed key, with pointers to the old and the new value, each null if there
///            was none or is none any more; nothing when an equal value is stored again
/// Re-entry   a change is complete before it is told, and telling is the last that happens: a
///            subscriber may change the collection again or let go of the owner. Key and values
///            handed to it stay readable during the dispatch, whatever becomes of the element
/// Errors     an exception of a subscriber passes through; the change stands
/// Cost       O(1) per key, of the collection; values are copied for the telling only while
///            somebody subscribes
template< short attributeId, class Key, class V, class Traits = KeyTraits< Key > >
class PublishedValues {
 public:
   using Value = V;
   using Members = HashMap2018< Key, Value, Traits >;

   explicit PublishedValues( PublishingEntity & owner ) : owner_( owner ) {}

   const Members & members() const { return members_; }

   void memberIs( const Key & key, const Value & value ) {
      if ( !owner_.publisher()->hasSubscribers() ) {
         members_.memberIsUnlessEqual( key, value );
         return;
      }
      const Key told = key;
      const Value current = value;
      std::optional< Value > previous;
      if ( members_.memberIsUnlessEqual( told, current, &previous ) ) {
         publish( told, previous ? &*previous : nullptr, &current );
      }
   }

   /// No effect if there is none.
   void memberDel( const Key & key ) {
      if ( !owner_.publisher()->hasSubscribers() ) {
         members_.deleteMember( key );
         return;
      }
      const Key told = key;
      const auto previous = members_.takeMember( told );
      if ( previous ) { publish( told, &*previous, nullptr ); }
   }

   /// The same for the member that `at` stands on; `at` then advances, also if a subscriber throws.
   void memberDel( typename Members::Iterator & at ) {
      if ( !owner_.publisher()->hasSubscribers() ) {
         members_.deleteAt( at );
         return;
      }
      const auto advancing = Lumo::onScopeExit( [&at] { at.advance(); } );
      if ( members_.deleteUnder( at ) ) {
         publish( at.key(), &at.value(), nullptr );
      } else {
         memberDel( at.key() );
      }
   }

   /// Deletes the members whose key is `unwanted` (see HashMap2018) if nobody subscribes: nobody
   /// sees their order then. False, and no effect, if somebody does.
   template< class Unwanted >
   bool memberDelUnseen( const Unwanted & unwanted ) {
      if ( owner_.publisher()->hasSubscribers() ) { return false; }
      members_.deleteIf( unwanted );
      return true;
   }

   /// Deletes and tells one after the other, in the collection's order. What a subscriber adds
   /// meanwhile is deleted too if its turn is still to come.
   void memberDelAll() {
      const Lumo::Ptr< const PublishingEntity > self( &owner_ );
      for ( auto at = members_.iterator(); at; ) { memberDel( at ); }
   }

 private:
   /// Comes last in every change: afterwards the owner may be gone.
   void publish( const Key & key, const Value * previous, const Value * current ) {
      owner_.publisher()->publishChange( attributeId, &key, previous, current );
   }

   PublishingEntity & owner_;
   Members members_;
};

/// A collection attribute of entities `E`. A null pointer is a value like any other; two pointers
/// are equal when they point to the same entity.
template< short attributeId, class Key, class E >
class PublishedCollection : public PublishedValues< attributeId, Key, Lumo::Ptr< const E > > {
 public:
   using PublishedValues< attributeId, Key, Lumo::Ptr< const E > >::PublishedValues;

   /// For the writer of the tree: the entity under `key`, or null.
   E * memberMutable( const Key & key ) const {
      const auto * const present = this->members().lookup( key );
      return present ? const_cast< E * >( present->value().get() ) : nullptr;
   }
};

} // namespace Quon
