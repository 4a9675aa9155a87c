#include "Lumo/Publisher.h"

namespace Lumo {
namespace {

/// The changes that this thread is telling now, innermost first: those of the event loop's thread,
/// null on any other. (Storage that every thread finds without a call.)
[[gnu::tls_model( "initial-exec" )]] thread_local Notification * innermost = nullptr;

/// Puts a notification in its place for the length of a dispatch.
class Telling {
 public:
   explicit Telling( Notification & notification ) : outer_( notification.outer ) {
      innermost = &notification;
   }
   ~Telling() { innermost = outer_; }
   Telling( const Telling & ) = delete;
   Telling & operator=( const Telling & ) = delete;

 private:
   Notification * const outer_;
};

} // namespace

/// One dispatch in progress: its cursor and end markers in the publisher's ring.
class Dispatch {
 public:
   // Out of line: inlined, g++ 12 takes the two links for pointers left dangling.
   [[gnu::noinline]] explicit Dispatch( Publisher & publisher )
      : cursor_( nullptr ), end_( nullptr ) {
      end_.linkBefore( publisher );
      cursor_.linkBefore( *publisher.next() );
   }

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
};

Publisher::~Publisher() {
   if ( next() != this ) {
      Impl::checkEventLoopThread(); // Nodes that nobody listens to may be dropped by any thread.
      while ( next() != this ) { next()->unlink(); }
   }
   for ( Notification * at = innermost; at; at = at->outer ) {
      if ( at->publisher == this ) { at->publisher = nullptr; }
   }
}

void Publisher::subscriberAdd( Subscriber & slot ) {
   Impl::checkEventLoopThread();
   LUMO_ASSERT( !slot.subscribed() );
   slot.linkBefore( *this );
}

bool Publisher::hasSubscribersAmongLinks() const {
   for ( const Link * at = next(); at != this; at = at->next() ) {
      if ( static_cast< const Subscriber * >( at )->dispatch_ ) { return true; }
   }
   return false;
}

void Publisher::dispatch( short attributeId, const void * key, const void * oldValue,
                          const void * newValue ) {
   Notification notification{ this, attributeId, key, oldValue, newValue, innermost };
   const Telling telling( notification );
   // Most publishers have one subscriber. Once it is told there is nothing to come back for, so no
   // need to mark the place.
   auto * const first = static_cast< Subscriber * >( next() );
   if ( first->next() == this && first->dispatch_ ) {
      first->dispatch_( this, first, attributeId, key, newValue );
   } else {
      dispatchToAll( attributeId, key, newValue );
   }
}

[[gnu::noinline]] void Publisher::dispatchToAll( short attributeId, const void * key,
                                                 const void * newValue ) {
   Dispatch inProgress( *this );
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
