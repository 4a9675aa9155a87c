#include "agent/EventLoop.h"

#include <asio/executor_work_guard.hpp>

namespace VeloAgent {

EventLoop::EventLoop( Lumo::Ptr< Oru::TaskScheduler > scheduler )
   : scheduler_( std::move( scheduler ) ) {
   scheduler_->wakeUpIs( [this] { wakeUp(); } );
}

EventLoop::~EventLoop() {
   scheduler_->wakeUpIs( {} );
   if ( watched_.is_open() ) { watched_.release(); }
}

void EventLoop::whenReadable( int fd, std::function< void() > readable ) {
   watched_.assign( fd );
   watched_.async_wait(
      asio::posix::stream_descriptor::wait_read,
      locked( [readable = std::move( readable )]( const std::error_code & error ) {
         if ( !error ) { readable(); }
      } ) );
}

void EventLoop::run() {
   const auto guard = asio::make_work_guard( context_ );
   context_.run();
}

void EventLoop::wakeUp() {
   if ( std::exchange( turnPosted_, true ) ) { return; }
   asio::post( context_, locked( [this] { turn(); } ) );
}

/// The next turn is posted after this one, so that it comes behind whatever this one has posted,
/// and also when this one throws.
void EventLoop::turn() {
   struct NextTurn {
      EventLoop & loop;
      ~NextTurn() {
         loop.turnPosted_ = false;
         if ( loop.scheduler_->pending() > 0 ) { loop.wakeUp(); }
      }
   } const next{ *this };
   scheduler_->runOne();
}

} // namespace VeloAgent
