#pragma once

#include "Lumo/Export.h"
#include "Lumo/RefCount.h"

namespace Lumo {

class Publisher;

/// Base of every entity and state machine: a reference count and eight flags in one word.
///
/// Owner      the `Ptr`s to it; a new node has one reference, which `makeNode` adopts
/// Thread     references: any; everything else: event loop
/// Invariant  the zombie flag is set from the moment the last reference goes; a subscriber that
///            is a zombie is not called any more
class VELO_PLATFORM_EXPORT Node {
 public:
   enum class Flag : unsigned char {
      zombie = 1,                ///< The object is being destroyed.
      hasNotificationActive = 2, ///< Its subscriptions are wanted.
      initialized = 4,           ///< For state machines: its initialisation step has run.
      inReactor = 8,             ///< For state machines: a reaction is in progress.
      adopted = 16,              ///< Somebody owns the first reference.
   };

   Node( const Node & ) = delete;
   Node & operator=( const Node & ) = delete;
   virtual ~Node();

   /// Called once, when the last reference has gone. Destroys the node.
   virtual void lastUserGone();

   /// Where changes of this node are published; null for a node that publishes none.
   virtual Publisher * publisher() const;

   bool nodeFlag( Flag flag ) const { return refs_.flag( static_cast< unsigned char >( flag ) ); }
   void nodeFlagSet( Flag flag, bool on ) {
      refs_.flagIs( static_cast< unsigned char >( flag ), on );
   }
   bool isZombie() const { return nodeFlag( Flag::zombie ); }

   /// How many references there are now; for tests and debugging.
   Impl::RefCount::Word references() const { return refs_.count(); }

   /// The first reference has found its owner; a node that dies without one is a bug.
   void referenceAdopted() const {
      refs_.flagIs( static_cast< unsigned char >( Flag::adopted ), true );
   }
   void referenceTaken() const { refs_.increment(); }
   void referenceDropped() const {
      if ( refs_.decrement() ) { const_cast< Node * >( this )->lastReferenceDropped(); }
   }

 protected:
   Node() = default;

 private:
   void lastReferenceDropped();

   mutable Impl::RefCount refs_;
};

} // namespace Lumo
