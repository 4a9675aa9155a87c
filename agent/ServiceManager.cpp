#include "agent/ServiceManager.h"

#include <cstdint>
#include <systemd/sd-daemon.h>

namespace VeloAgent {

void ServiceManager::ready() {
   ::sd_notify( 0, "READY=1\nSTATUS=Serving" );
   std::uint64_t longestSilence = 0;
   if ( ::sd_watchdog_enabled( 0, &longestSilence ) > 0 ) {
      interval_ = std::chrono::microseconds( longestSilence / 2 );
      signOfLife();
   }
}

void ServiceManager::stopping() {
   ::sd_notify( 0, "STOPPING=1\nSTATUS=Clients are told what is pending" );
}

void ServiceManager::signOfLife() {
   ::sd_notify( 0, "WATCHDOG=1" );
   timer_.expires_after( interval_ );
   timer_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
      if ( !error ) { signOfLife(); }
   } ) );
}

} // namespace VeloAgent
