#include "agent/rpc/ConnectionGate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>

namespace VeloAgent {

namespace {

/// How long nobody is let in after the machine could not give us a connection: long enough not to
/// spin, for the one who waits stays in the queue.
constexpr int kPauseMs = 50;

constexpr int kProbeAfterSeconds = 60;

FileDescriptor checked( int fd, const char * what ) {
   if ( fd < 0 ) { throw std::system_error( errno, std::generic_category(), what ); }
   return FileDescriptor( fd );
}

/// Small messages must not wait for each other, and machines that have vanished give their place
/// free. Of no effect on Unix sockets.
void prepare( int connection ) {
   const auto set = [connection]( int level, int option, int value ) {
      ::setsockopt( connection, level, option, &value, sizeof( value ) );
   };
   set( IPPROTO_TCP, TCP_NODELAY, 1 );
   set( SOL_SOCKET, SO_KEEPALIVE, 1 );
   set( IPPROTO_TCP, TCP_KEEPIDLE, kProbeAfterSeconds );
   set( IPPROTO_TCP, TCP_KEEPINTVL, kProbeAfterSeconds );
}

} // namespace

ConnectionGate::ConnectionGate( const std::vector< FileDescriptor > & sockets, std::size_t most,
                                HandOver handOver )
   : most_( most ),
     handOver_( std::move( handOver ) ),
     wakeUp_( checked( ::eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ), "eventfd" ) ),
     poll_( checked( ::epoll_create1( EPOLL_CLOEXEC ), "epoll_create1" ) ) {
   bool watched = watch( *wakeUp_, EPOLLIN );
   for ( const FileDescriptor & socket : sockets ) {
      watched = watched && watch( *socket, EPOLLIN );
   }
   if ( !watched ) { throw std::system_error( errno, std::generic_category(), "epoll_ctl" ); }
   thread_ = std::thread( [this] { run(); } );
}

void ConnectionGate::close() {
   if ( !thread_.joinable() ) { return; }
   ::eventfd_write( *wakeUp_, 1 );
   thread_.join();
}

void ConnectionGate::hangUp() {
   for ( const auto & [key, second] : watched_ ) { ::shutdown( *second, SHUT_RDWR ); }
   watched_.clear();
   open_ = 0;
}

void ConnectionGate::run() {
   std::array< epoll_event, 64 > events;
   while ( true ) {
      const int count = ::epoll_wait( *poll_, events.data(), events.size(), -1 );
      for ( int n = 0; n < count; ++n ) {
         const int fd = events[static_cast< std::size_t >( n )].data.fd;
         if ( fd == *wakeUp_ ) { return; }
         if ( watched_.count( fd ) > 0 ) {
            forget( fd );
         } else {
            acceptFrom( fd );
         }
      }
   }
}

/// One at a time: the kernel tells again of the next, behind those that have hung up meanwhile.
void ConnectionGate::acceptFrom( int listener ) {
   FileDescriptor connection(
      ::accept4( listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC ) );
   if ( connection ) { return admit( listener, std::move( connection ) ); }
   const bool nothingLeft =
      errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
   if ( nothingLeft ) {
      pollfd stop = { .fd = *wakeUp_, .events = POLLIN, .revents = 0 };
      ::poll( &stop, 1, kPauseMs );
   }
}

void ConnectionGate::admit( int listener, FileDescriptor connection ) {
   FileDescriptor second;
   if ( watched_.size() < most_ ) {
      second = FileDescriptor( ::fcntl( *connection, F_DUPFD_CLOEXEC, 0 ) );
   }
   // Being hung up is told always.
   if ( !second || !watch( *second, 0 ) ) {
      ++refused_;
      return;
   }
   prepare( *connection );
   const int key = *second;
   watched_.emplace( key, std::move( second ) );
   open_ = watched_.size();
   ++accepted_;
   handOver_( listener, connection.release() );
}

/// The transport may still have the connection, and then the kernel would go on to tell of it.
void ConnectionGate::forget( int second ) {
   ::epoll_ctl( *poll_, EPOLL_CTL_DEL, second, nullptr );
   watched_.erase( second );
   open_ = watched_.size();
}

bool ConnectionGate::watch( int fd, std::uint32_t events ) {
   epoll_event event = {};
   event.events = events;
   event.data.fd = fd;
   return ::epoll_ctl( *poll_, EPOLL_CTL_ADD, fd, &event ) == 0;
}

} // namespace VeloAgent
