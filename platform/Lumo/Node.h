#pragma once

#include <cstddef>

#include "Lumo/Export.h"
#include "Lumo/RefCount.h"

namespace Lumo {

class Publisher;

/// Base of every entity and state machine: a reference count and eight flags in one word.
///
/// Owner      the `Ptr`s to it; a new node has one reference, which `makeNode` adopts. A node on
///            the stack or inside another object keeps that reference itself, for its whole life
/// Thread     references: any; everything else: event loop
/// Invariant  the zombie flag is set from the moment the last reference goes, before
///            `lastUserGone`; a subscriber that is a zombie is not called any more. No reference
///            is taken during destruction, and none is left after it (checked in debug builds)
class VELO_PLATFORM_EXPORT Node {
 public:
   enum class Flag : unsigned char {
      zombie = 1,                ///< The object is being destroyed.
      hasNotificationActive = 2, ///< Its subscriptions are wanted.
      initialized = 4,           ///< For state machines: its initialisation step has run.
      inReactor = 8,             ///< For state machines: a reaction is in progress.
      adopted = 16,              ///< The first reference belongs to a `Ptr`; set by `Ptr::adopt`.
   };

   /// `Ptr( new T )` would hold two references and leak: use `makeNode`. (A factory with a private
   /// constructor writes `Ptr< T >::adopt( ::new T )`.)
   static void * operator new( std::size_t ) = delete;

   Node( const Node & ) = delete;
   Node & operator=( const Node & ) = delete;
   virtual ~Node();

   /// Called once, when the last reference has gone, on the thread that dropped it. Destroys the
   /// node.
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

   // What `Ptr` calls; nobody else should.
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
