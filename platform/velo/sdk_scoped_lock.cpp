#include "velo/sdk_scoped_lock.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Lumo/Assert.h"
#include "Lumo/Link.h"
#include "Lumo/Thread.h"

namespace velo {
namespace {

/// A thread that waits, on that thread's stack. Each has its own condition: nobody is woken whose
/// turn it is not.
struct Waiter : Lumo::Link {
   const std::thread::id thread = std::this_thread::get_id();
   std::condition_variable turn;
};

/// The lock behind all guards.
///
///    holder_ = A     waiters_:  B, C, D   in order of arrival
///
/// Whoever lets go makes the first waiter the holder before it wakes it. So the lock is never free
/// while somebody waits, and nobody, least of all the thread that has just let go, can get in ahead
/// of those who came earlier.
class SdkLock {
 public:
   void take() {
      const auto self = std::this_thread::get_id();
      std::unique_lock guard( mutex_ );
      if ( holder_ == self ) {
         ++depth_;
         return;
      }
      if ( holder_ == std::thread::id() ) {
         holder_ = self;
      } else {
         waitForTurn( guard );
      }
      depth_ = 1;
      loopThreadBefore_ = Lumo::Impl::eventLoopThreadIsCurrent();
   }

   void letGo() {
      const std::lock_guard guard( mutex_ );
      LUMO_ASSERT( holder_ == std::this_thread::get_id() );
      if ( --depth_ != 0 ) { return; }
      Lumo::Impl::eventLoopThreadIs( loopThreadBefore_ );
      if ( waiting_ == 0 ) {
         holder_ = std::thread::id();
         return;
      }
      auto & next = static_cast< Waiter & >( *waiters_.next() );
      next.unlink();
      --waiting_;
      holder_ = next.thread;
      next.turn.notify_one(); // before the mutex is free: afterwards `next` may be gone
   }

   std::size_t waiting() {
      const std::lock_guard guard( mutex_ );
      return waiting_;
   }

 private:
   void waitForTurn( std::unique_lock< std::mutex > & guard ) {
      Waiter self;
      self.linkBefore( waiters_ );
      ++waiting_;
      self.turn.wait( guard, [&] { return holder_ == self.thread; } );
   }

   struct Queue : Lumo::Link {
      Queue() { ringBegin(); }
   };

   std::mutex mutex_; ///< Guards the rest; held for moments only.
   std::thread::id holder_;
   unsigned depth_ = 0; ///< How many guards the holder has.
   Queue waiters_;
   std::size_t waiting_ = 0;
   unsigned long loopThreadBefore_ = 0; ///< Who had the event loop's role before the holder.
};

SdkLock & sdkLock() {
   // Never destroyed: threads may still let go of it while the process ends.
   static SdkLock & lock = *new SdkLock;
   return lock;
}

} // namespace

sdk_scoped_lock::sdk_scoped_lock() { sdkLock().take(); }

sdk_scoped_lock::~sdk_scoped_lock() { sdkLock().letGo(); }

std::size_t sdk_scoped_lock::waiting() { return sdkLock().waiting(); }

} // namespace velo
