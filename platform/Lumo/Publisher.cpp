#include "Lumo/Publisher.h"

namespace Lumo {
namespace {

/// The changes being told now, innermost first. Event loop only, like all dispatching.
Notification * innermost = nullptr;

} // namespace

/// One dispatch in progress: its cursor and end markers in the publisher's ring.
class Dispatch {
 public:
   // Out of line: inlined, g++ 12 takes the two links for pointers left dangling.
   [[gnu::noinline]] Dispatch( Publisher & publisher, Notification & notification )
      : cursor_( nullptr ), end_( nullptr ), outer_( notification.outer ) {
      end_.linkBefore( publisher );
      cursor_.linkBefore( *publisher.next() );
      innermost = &notification;
   }
   ~Dispatch() { innermost = outer_; }

   /// Steps over the next subscriber and returns it; null at the end or when the publisher died.
   Subscriber * next() {
      while ( cursor_.linked() ) {
         Link * at = cursor_.next();
         if ( at == &end_ ) { return nullptr; }
         cursor_.unlink();
         cursor_.linkBefore( *at->next() );
         auto * slot = static_cast< Subscriber * >( at );
         if ( slot->dispatch_ ) { return slot; }
      }
      return nullptr;
   }

 private:
   Subscriber cursor_;
   Subscriber end_;
   Notification * outer_;
};

Publisher::~Publisher() {
   // Nobody subscribed, so no dispatch in progress either: any thread may drop such a node.
   if ( next() == this ) { return; }
   Impl::checkEventLoopThread();
   while ( next() != this ) { next()->unlink(); }
   for ( Notification * at = innermost; at; at = at->outer ) {
      if ( at->publisher == this ) { at->publisher = nullptr; }
   }
}

void Publisher::subscriberAdd( Subscriber & slot ) {
   Impl::checkEventLoopThread();
   LUMO_ASSERT( !slot.subscribed() );
   slot.linkBefore( *this );
}

bool Publisher::hasSubscribers() const {
   for ( const Link * at = next(); at != this; at = at->next() ) {
      if ( static_cast< const Subscriber * >( at )->dispatch_ ) { return true; }
   }
   return false;
}

void Publisher::dispatch( short attributeId, const void * key, const void * oldValue,
                          const void * newValue ) {
   Notification notification{ this, attributeId, key, oldValue, newValue, innermost };
   Dispatch inProgress( *this, notification );
   while ( Subscriber * slot = inProgress.next() ) {
      slot->dispatch_( this, slot, attributeId, key, newValue );
   }
}

const Notification * Publisher::notification( short attributeId ) const {
   const Notification * at = innermost;
   while ( at && ( at->publisher != this || at->attributeId != attributeId ) ) { at = at->outer; }
   return at;
}

} // namespace Lumo
