#pragma once

#include "Lumo/Assert.h"

namespace Lumo {

/// A member of an intrusive ring: linked and unlinked in O(1) without allocation.
///
/// Owner      each link belongs to the object it is a part of; a ring owns nothing
/// Thread     one at a time, for the whole ring
/// Invariant  a ring consists of its owner, which is always linked, and of members, each in one
///            ring at most; a member leaves its ring when it is destroyed. The owner's destructor
///            must find the ring empty, or empty it
class Link {
 public:
   Link( const Link & ) = delete;
   Link & operator=( const Link & ) = delete;

   bool linked() const { return next_ != nullptr; }
   Link * next() const { return next_; }

   /// Joins the ring of `position`, in front of it: in front of the owner is the end of the ring.
   void linkBefore( Link & position ) {
      LUMO_DEBUG_ASSERT( !linked() && position.linked() );
      next_ = &position;
      prev_ = position.prev_;
      prev_->next_ = this;
      position.prev_ = this;
   }

   /// Leaves the ring; nothing if in none.
   void unlink() {
      if ( !linked() ) { return; }
      prev_->next_ = next_;
      next_->prev_ = prev_;
      next_ = prev_ = nullptr;
   }

 protected:
   Link() = default;
   ~Link() { unlink(); }

   /// Makes this the owner of a ring of its own.
   void ringBegin() { next_ = prev_ = this; }

 private:
   Link * next_ = nullptr;
   Link * prev_ = nullptr;
};

} // namespace Lumo
