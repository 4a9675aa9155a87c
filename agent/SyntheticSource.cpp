#include "agent/SyntheticSource.h"

#include <algorithm>

namespace VeloAgent {

namespace {

using namespace std::chrono_literals;

/// Portions are this large while the population appears: many slices' work, little memory.
constexpr std::size_t kPortion = 10'000;

constexpr std::chrono::milliseconds kTick = 10ms;
constexpr std::chrono::nanoseconds kLongestDebt = 1s;

} // namespace

SyntheticSource::SyntheticSource( EventLoop & loop, SourceListener & listener,
                                  const SyntheticOptions & options )
   : listener_( listener ),
     changes_( options ),
     toAppear_( changes_.populationSize() ),
     changesPerSecond_( options.changesPerSecond ),
     timer_( loop.context() ) {}

void SyntheticSource::start() { changesApplied(); }

void SyntheticSource::changesApplied() {
   applying_ = false;
   if ( toAppear_ > 0 ) {
      const std::size_t count = std::min( kPortion, toAppear_ );
      toAppear_ -= count;
      offer( count );
   } else if ( changesPerSecond_ > 0 && paidUntil_ == Clock::time_point() ) {
      paidUntil_ = Clock::now();
      waitForTick();
   }
}

void SyntheticSource::offer( std::size_t count ) {
   applying_ = true;
   listener_.changesFound( changes_.next( count ) );
}

void SyntheticSource::waitForTick() {
   timer_.expires_after( kTick );
   timer_.async_wait( EventLoop::locked( [this]( const std::error_code & error ) {
      if ( !error ) { tick(); }
   } ) );
}

void SyntheticSource::tick() {
   waitForTick();
   if ( applying_ ) { return; }
   const std::size_t count = due();
   if ( count > 0 ) { offer( count ); }
}

/// How many changes the time that has passed is worth; what is left over counts next time.
std::size_t SyntheticSource::due() {
   const Clock::time_point now = Clock::now();
   paidUntil_ = std::max( paidUntil_, now - kLongestDebt );
   const std::chrono::nanoseconds perChange =
      std::chrono::nanoseconds( 1s ) / std::chrono::nanoseconds::rep{ changesPerSecond_ };
   const auto count = ( now - paidUntil_ ) / perChange;
   paidUntil_ += count * perChange;
   return static_cast< std::size_t >( count );
}

} // namespace VeloAgent
