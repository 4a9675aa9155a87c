#include "agent/Output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace VeloAgent {

void Output::line( std::string_view text ) {
   if ( error_ != 0 ) { return; }
   pending_.append( text );
   pending_.push_back( '\n' );
   if ( pending() >= kEnough ) { flush(); }
}

void Output::flush() {
   if ( !waiting_ ) { write(); }
}

void Output::write() {
   while ( error_ == 0 && pending() > 0 && isReady() ) {
      const ssize_t written =
         ::write( fd_, pending_.data() + begin_, std::min< std::size_t >( pending(), PIPE_BUF ) );
      if ( written >= 0 ) {
         begin_ += static_cast< std::size_t >( written );
      } else if ( errno != EINTR && errno != EAGAIN ) {
         fail( errno );
      }
   }
   pending_.erase( 0, std::exchange( begin_, 0 ) );
   if ( pending() > 0 ) { wait(); }
}

void Output::wait() try {
   if ( !watch_ ) { watch_.emplace( loop_, fd_ ); }
   watch_->wait( [this] {
      waiting_ = false;
      write();
      if ( !waiting_ && written_ ) { written_(); }
   } );
   waiting_ = true;
} catch ( const std::system_error & error ) { fail( error.code().value() ); }

void Output::fail( int error ) {
   error_ = error;
   pending_.clear();
   begin_ = 0;
   failed_();
}

bool Output::isReady() {
   pollfd fd = { fd_, POLLOUT, 0 };
   while ( ::poll( &fd, 1, 0 ) < 0 ) {
      if ( errno != EINTR ) {
         fail( errno );
         return false;
      }
   }
   return fd.revents != 0;
}

} // namespace VeloAgent
