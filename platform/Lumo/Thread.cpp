#include "Lumo/Thread.h"

#include <atomic>

#include "Lumo/Assert.h"

namespace Lumo::Impl {
namespace {

/// 0: nobody has touched anything yet.
std::atomic< unsigned long > loopThread{ 0 };

unsigned long currentThread() {
   static std::atomic< unsigned long > last{ 0 };
   thread_local const unsigned long id = ++last;
   return id;
}

} // namespace

unsigned long eventLoopThreadIsCurrent() { return loopThread.exchange( currentThread() ); }

void eventLoopThreadIs( unsigned long token ) { loopThread.store( token ); }

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS
void checkEventLoopThread() {
   const unsigned long self = currentThread();
   unsigned long owner = loopThread.load( std::memory_order_relaxed );
   if ( owner == 0 && loopThread.compare_exchange_strong( owner, self ) ) { return; }
   LUMO_ASSERT( owner == self && "only the thread that runs the event loop may do this" );
}
#endif

} // namespace Lumo::Impl
