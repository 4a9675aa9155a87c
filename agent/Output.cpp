#include "agent/Output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>

namespace VeloAgent {

void Output::line( std::string_view text ) {
   if ( error_ != 0 ) { return; }
   pending_.append( text );
   pending_.push_back( '\n' );
   if ( pending_.size() >= kEnough ) { flush(); }
}

void Output::flush() {
   write( pending_ );
   pending_.clear();
}

void Output::write( std::string_view text ) {
   while ( !text.empty() && ready() ) {
      const ssize_t written =
         ::write( fd_, text.data(), std::min< std::size_t >( text.size(), PIPE_BUF ) );
      if ( written >= 0 ) {
         text.remove_prefix( static_cast< std::size_t >( written ) );
      } else if ( errno != EINTR && errno != EAGAIN ) {
         fail( errno );
      }
   }
}

void Output::fail( int error ) {
   error_ = error;
   failed_();
}

bool Output::ready() {
   while ( error_ == 0 ) {
      std::array< pollfd, 2 > fds = { { { fd_, POLLOUT, 0 }, { stop_, POLLIN, 0 } } };
      if ( ::poll( fds.data(), fds.size(), -1 ) < 0 ) {
         if ( errno != EINTR ) { fail( errno ); }
      } else if ( fds[0].revents != 0 ) {
         return true; // to be written, or to fail with its reason
      } else if ( fds[1].revents != 0 ) {
         fail( ECANCELED );
      }
   }
   return false;
}

} // namespace VeloAgent
