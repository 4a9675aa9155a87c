#include "agent/veloctl/WatchLoop.h"

#include "agent/veloctl/Client.h"
#include "agent/veloctl/Failures.h"

#include <algorithm>
#include <poll.h>

namespace VeloCtl {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kFirstDelay = 100ms;
constexpr std::chrono::milliseconds kLongestDelay = 5s;
/// How soon a wish to stop is heard, and the least time between two ticks while nothing comes.
constexpr std::chrono::milliseconds kAttention = 100ms;

class Follower {
 public:
   Follower( Client & client, Watched & watched, const StopRequest & stop )
      : client_( client ), watched_( watched ), stop_( stop ) {}

   bool ended() const { return watched_.enough() || stop_.asked(); }
   /// Whether a message has ever come.
   bool begun() const { return begun_; }

   /// Until the stream breaks, or nothing more is wanted.
   void followOneCall() {
      Call call( client_, watched_.request(), watched_.response() );
      call.send( watched_.request() );
      call.endSending();
      // The first message is due at once, the others whenever there is something to tell.
      Call::Next next = call.next();
      while ( next != Call::Next::end ) {
         if ( next == Call::Next::message ) {
            begun_ = true;
            delay_ = kFirstDelay;
            watched_.take();
         }
         watched_.tick();
         if ( ended() ) { return; }
         next = call.next( Call::Clock::now() + kAttention );
      }
      throw CallFailed( ExitCode::refused, "the agent has ended the stream", true );
   }

   void pause( const std::string & why ) {
      watched_.interrupted( why, delay_ );
      stop_.within( delay_ );
      delay_ = std::min( 2 * delay_, kLongestDelay );
   }

 private:
   Client & client_;
   Watched & watched_;
   const StopRequest & stop_;
   std::chrono::milliseconds delay_ = kFirstDelay;
   bool begun_ = false;
};

} // namespace

bool StopRequest::within( std::chrono::milliseconds time ) const {
   pollfd asked{ .fd = signals_.fd(), .events = POLLIN, .revents = 0 };
   return ::poll( &asked, 1, static_cast< int >( time.count() ) ) > 0;
}

void follow( Client & client, Watched & watched, const StopRequest & stop, bool retry ) {
   Follower follower( client, watched, stop );
   while ( !follower.ended() ) {
      try {
         follower.followOneCall();
      } catch ( const CallFailed & failed ) {
         if ( !retry || !failed.retryable() || !follower.begun() ) { throw; }
         follower.pause( failed.what() );
      }
   }
}

} // namespace VeloCtl
