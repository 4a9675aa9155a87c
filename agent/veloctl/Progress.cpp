#include "agent/veloctl/Progress.h"

#include <fmt/format.h>
#include <ostream>
#include <utility>

namespace VeloCtl {

namespace {

/// What is over before anybody would look is not shown.
constexpr std::chrono::milliseconds kPace{ 200 };
constexpr const char * kClearLine = "\r\x1b[K";

} // namespace

Progress::Progress( const Streams & streams, std::string what, std::uint64_t total,
                    std::function< Time() > now )
   : to_( streams.errIsTerminal ? &streams.err : nullptr ),
     what_( std::move( what ) ),
     total_( total ),
     now_( std::move( now ) ),
     shownAt_( now_() ) {}

Progress::~Progress() {
   if ( to_ ) { *to_ << kClearLine << std::flush; }
}

void Progress::doneIs( std::uint64_t done ) {
   if ( !to_ ) { return; }
   const Time now = now_();
   if ( now - shownAt_ < kPace ) { return; }
   shownAt_ = now;
   *to_ << kClearLine << fmt::format( "{} {} of {}", what_, done, total_ ) << std::flush;
}

} // namespace VeloCtl
