#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include <sys/single_threaded.h>

#include "Lumo/Assert.h"

namespace Lumo::Impl {

/// A reference count with eight flag bits below it, in one word.
///
/// While the process has a single thread the arithmetic is plain; afterwards it is atomic. The C
/// library tells which (`__libc_single_threaded`, which turns false before a second thread runs).
/// Flag writes share the word and follow the same rule.
///
/// Invariant  counting never touches the flags, and a flag write never the count; a count that
///            reached zero stays there (checked in debug builds)
class RefCount {
 public:
   using Word = std::uint64_t;
   static constexpr unsigned kFlagBits = 8;
   static constexpr Word kOne = Word{ 1 } << kFlagBits;
   static constexpr Word kFlags = kOne - 1;

   RefCount() : word_( kOne ) {}

   void increment() {
      LUMO_DEBUG_ASSERT( count() != 0 && "no reference may be taken during destruction" );
      add( kOne );
   }

   /// True when this was the last reference.
   bool decrement() {
      LUMO_DEBUG_ASSERT( count() != 0 && "a reference is dropped once" );
      return add( ~kOne + 1 ) >> kFlagBits == 1;
   }

   Word count() const { return word().load( std::memory_order_relaxed ) >> kFlagBits; }

   bool flag( Word mask ) const { return word().load( std::memory_order_relaxed ) & mask; }

   [[gnu::always_inline]] void flagIs( Word mask, bool on ) {
      if ( __libc_single_threaded ) {
         word_ = on ? word_ | mask : word_ & ~mask;
      } else if ( on ) {
         word().fetch_or( mask, std::memory_order_relaxed );
      } else {
         word().fetch_and( ~mask, std::memory_order_relaxed );
      }
   }

 private:
   Word add( Word delta ) {
      if ( __libc_single_threaded ) { return std::exchange( word_, word_ + delta ); }
      return word().fetch_add( delta, std::memory_order_acq_rel );
   }

   std::atomic_ref< Word > word() const { return std::atomic_ref< Word >( word_ ); }

   // No std::atomic: the plain arithmetic is really plain, for the compiler, which then needs one
   // instruction, and for the thread sanitizer, which then sees it when it should not be.
   mutable Word word_;
};

} // namespace Lumo::Impl
