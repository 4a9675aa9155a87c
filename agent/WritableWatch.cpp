#include "agent/WritableWatch.h"

#include <cerrno>
#include <sys/epoll.h>
#include <system_error>
#include <utility>

namespace VeloAgent {

namespace {

/// A watch that is set for one event at a time is quiet in between.
void control( int watch, int operation, int fd, std::uint32_t events ) {
   epoll_event event{};
   event.events = events | EPOLLONESHOT;
   if ( ::epoll_ctl( watch, operation, fd, &event ) != 0 ) {
      throw std::system_error( errno, std::generic_category(), "epoll_ctl" );
   }
}

} // namespace

WritableWatch::WritableWatch( EventLoop & loop, int fd ) : fd_( fd ), watch_( loop.context() ) {
   const int watch = ::epoll_create1( EPOLL_CLOEXEC );
   if ( watch < 0 ) { throw std::system_error( errno, std::generic_category(), "epoll_create1" ); }
   watch_.assign( watch );
   control( watch, EPOLL_CTL_ADD, fd, 0 );
}

void WritableWatch::wait( std::function< void() > writable ) {
   control( watch_.native_handle(), EPOLL_CTL_MOD, fd_, EPOLLOUT );
   watch_.async_wait(
      asio::posix::stream_descriptor::wait_read,
      EventLoop::locked( [this, writable = std::move( writable )]( const std::error_code & error ) {
         if ( error ) { return; }
         epoll_event event;
         ::epoll_wait( watch_.native_handle(), &event, 1, 0 ); // It is told by that only once.
         writable();
      } ) );
}

} // namespace VeloAgent
