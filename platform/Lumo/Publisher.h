#pragma once

#include <utility>

#include "Lumo/Export.h"
#include "Lumo/Link.h"
#include "Lumo/Node.h"
#include "Lumo/Thread.h"

/// Notifications: a publisher tells its subscribers of every change, synchronously.
///
/// A subscriber slot is a member of the subscribing object and a link of the publisher's ring:
/// subscribing allocates nothing and unsubscribing is O(1). A dispatch in progress is two more
/// links of the same ring, on the stack of the dispatch:
///
///    publisher <-> slot A <-> [cursor] <-> slot B <-> [end] <-> slot C <-> (publisher)
///                  told       next: B                 C was added during this dispatch
///
/// So whatever a dispatch function does - remove any slot, destroy one, add some, publish again,
/// destroy the publisher - edits the ring, and the dispatch goes on from its cursor: a removed slot
/// is not called, an added one waits for the next change, and when the publisher has gone the
/// cursor finds itself unlinked and the dispatch ends. An exception unlinks cursor and end. The
/// usual publisher has one subscriber; that one is called without any of this.

namespace Lumo {

class Publisher;
class Subscriber;

/// `value` is the new value of the attribute or collection element, null when it was removed;
/// `key` is the collection key, null for a plain attribute.
using DispatchFunction = void ( * )( Publisher * publisher, Subscriber * subscriber,
                                     short attributeId, const void * key, const void * value );

/// A slot with its dispatch function. The function finds its object from the slot; it must ignore
/// attribute ids that it does not know and, unlike that of a `MemberSubscriber`, test by itself
/// whether its object is being torn down.
///
/// Owner      the subscribing object; a slot that is destroyed unsubscribes itself
class Subscriber : public Link {
 public:
   explicit Subscriber( DispatchFunction dispatch ) : dispatch_( dispatch ) {}

   bool subscribed() const { return linked(); }

 private:
   friend class Publisher;
   friend class Dispatch;

   DispatchFunction dispatch_; ///< Null: a marker of a dispatch in progress, not a subscriber.
};

/// The slot of an object that handles changes in a member function
/// `void handler( Publisher *, Subscriber *, short attributeId, const void * key, const void *
/// value )`. Skipped while the object is being torn down.
template< class Owner, auto handler >
class MemberSubscriber : public Subscriber {
 public:
   explicit MemberSubscriber( Owner * owner ) : Subscriber( &dispatch ), owner_( owner ) {}

 private:
   static void dispatch( Publisher * publisher, Subscriber * subscriber, short attributeId,
                         const void * key, const void * value ) {
      Owner * owner = static_cast< MemberSubscriber * >( subscriber )->owner_;
      if ( owner->isZombie() ) { return; }
      ( owner->*handler )( publisher, subscriber, attributeId, key, value );
   }

   Owner * owner_;
};

/// One change while it is being told: what `getNotifyValues` reads.
struct Notification {
   const Publisher * publisher; ///< Null when it was destroyed meanwhile.
   short attributeId;
   const void * key;
   const void * oldValue; ///< Null: the element was added.
   const void * newValue; ///< Null: the element was removed.
   Notification * outer;  ///< The change during whose dispatch this one is told.
};

/// The publishing half. Part of the object whose changes it tells, or on its own.
///
/// Thread     event loop only (checked in debug builds)
/// Re-entry   anything may happen during a dispatch, see above
class VELO_PLATFORM_EXPORT Publisher : private Link {
 public:
   Publisher() { ringBegin(); }
   ~Publisher();

   /// Subscribes `slot`, which must be free. It learns of changes from the next one on. O(1).
   void subscriberAdd( Subscriber & slot );

   /// Unsubscribes `slot`, which must be free or one of this publisher's. O(1).
   void subscriberRemove( Subscriber & slot ) {
      Impl::checkEventLoopThread();
      slot.unlink();
   }

   /// Whether a change now would be told to anybody.
   bool hasSubscribers() const { return next() != this && hasSubscribersAmongLinks(); }

   /// Tells every subscriber that `attributeId` (of a collection: its element `key`) changed. The
   /// values must stay readable until this returns. Exceptions of a dispatch function pass through;
   /// the subscribers after it are not told.
   void publishChange( short attributeId, const void * key = nullptr,
                       const void * oldValue = nullptr, const void * newValue = nullptr ) {
      Impl::checkEventLoopThread();
      if ( next() != this ) { dispatch( attributeId, key, oldValue, newValue ); }
   }

   /// Publishes a change of one's own attribute unless `equal` says that old and new are the same.
   void publishChangeRecursive( short attributeId, const void * key, const void * oldValue,
                                bool equal = false, const void * newValue = nullptr ) {
      if ( !equal ) { publishChange( attributeId, key, oldValue, newValue ); }
   }

   /// The change of `attributeId` that this publisher is telling now, innermost first; null outside
   /// of a dispatch.
   const Notification * notification( short attributeId ) const;

 private:
   void dispatch( short attributeId, const void * key, const void * oldValue,
                  const void * newValue );
   bool hasSubscribersAmongLinks() const;
   void dispatchToAll( short attributeId, const void * key, const void * newValue );

   friend class Dispatch;
};

/// Subscribes `slot` to `publisher`, or unsubscribes it, unless it is in that state already or
/// there is nothing to listen to.
inline void subscriptionIs( Publisher * publisher, Subscriber & slot, bool wanted ) {
   if ( !publisher || slot.subscribed() == wanted ) { return; }
   if ( wanted ) {
      publisher->subscriberAdd( slot );
   } else {
      publisher->subscriberRemove( slot );
   }
}

} // namespace Lumo
