#include "agent/nftables/NftPoller.h"

#include "agent/nftables/NftTable.h"

#include <algorithm>
#include <utility>

namespace VeloAgent {

namespace {

/// From here on the longest wait decides, whatever the interval.
constexpr unsigned kMostDoublings = 16;

} // namespace

NftPoller::NftPoller( Read read, std::chrono::milliseconds interval )
   : read_( std::move( read ) ), interval_( interval ) {}

NftFinding NftPoller::firstPoll() { return taken( read_() ); }

NftFinding NftPoller::poll() {
   std::string failure;
   try {
      return taken( read_() );
   } catch ( const NftNoSuchTable & gone ) {
      return tableIsGone( gone.what() );
   } catch ( const std::exception & error ) { failure = error.what(); }
   return failed( failure );
}

NftFinding NftPoller::taken( NftCounters now ) {
   NftFinding finding;
   finding.wait = interval_;
   finding.recovered = std::exchange( failures_, 0 ) > 0;
   if ( std::exchange( gone_, false ) ) { finding.notes.push_back( "the table is back" ); }

   std::set< std::string > misnamed( now.misnamed.begin(), now.misnamed.end() );
   for ( const std::string & name : misnamed ) {
      if ( misnamed_.contains( name ) ) { continue; }
      finding.notes.push_back( "the counter \"" + name +
                               "\" is not called POLICY/CLASS and is passed over" );
   }
   misnamed_ = std::move( misnamed );

   finding.changes = changesBetween( last_, now.counters );
   last_ = std::move( now.counters );
   return finding;
}

NftFinding NftPoller::tableIsGone( const std::string & what ) {
   const bool known = gone_;
   NftFinding finding = taken( {} );
   finding.notes.clear();
   if ( !known ) { finding.notes.push_back( what + ": its policy maps go until it is back" ); }
   gone_ = true;
   return finding;
}

NftFinding NftPoller::failed( const std::string & what ) {
   NftFinding finding;
   finding.failure = what;
   const std::chrono::milliseconds doubled = interval_ * ( 1 << failures_ );
   finding.wait = std::max( interval_, std::min( doubled, kLongestWait ) );
   failures_ = std::min( failures_ + 1, kMostDoublings );
   return finding;
}

} // namespace VeloAgent
