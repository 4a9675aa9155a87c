#include "agent/StopSignals.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace VeloAgent {

StopSignals::StopSignals() {
   sigset_t signals;
   sigemptyset( &signals );
   sigaddset( &signals, SIGINT );
   sigaddset( &signals, SIGTERM );
   const int error = pthread_sigmask( SIG_BLOCK, &signals, nullptr );
   if ( error != 0 ) {
      throw std::system_error( error, std::generic_category(), "pthread_sigmask" );
   }
   fd_ = ::signalfd( -1, &signals, SFD_CLOEXEC | SFD_NONBLOCK );
   if ( fd_ < 0 ) { throw std::system_error( errno, std::generic_category(), "signalfd" ); }
}

StopSignals::~StopSignals() { ::close( fd_ ); }

} // namespace VeloAgent
