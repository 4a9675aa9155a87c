#include "agent/nftables/NftReader.h"

#include <utility>

namespace VeloAgent {

NftReader::NftReader( NftPoller poller, Deliver deliver )
   : poller_( std::move( poller ) ), deliver_( std::move( deliver ) ) {}

NftReader::~NftReader() {
   {
      const std::lock_guard guard( mutex_ );
      ending_ = true;
   }
   wake_.notify_one();
   if ( thread_.joinable() ) { thread_.join(); }
}

void NftReader::start( NftFinding first ) {
   thread_ = std::thread( &NftReader::run, this, std::move( first ) );
}

void NftReader::changesApplied() {
   {
      const std::lock_guard guard( mutex_ );
      applying_ = false;
   }
   wake_.notify_one();
}

void NftReader::run( NftFinding first ) {
   NftFinding finding = std::move( first );
   for ( ;; ) {
      const auto due = std::chrono::steady_clock::now() + finding.wait;
      if ( finding.hasNews() ) {
         {
            const std::lock_guard guard( mutex_ );
            applying_ = !finding.changes.empty();
         }
         deliver_( std::move( finding ) );
      }
      if ( !waitForNext( due ) ) { return; }
      finding = poller_.poll();
   }
}

bool NftReader::waitForNext( std::chrono::steady_clock::time_point due ) {
   std::unique_lock lock( mutex_ );
   wake_.wait_until( lock, due, [this] { return ending_; } );
   wake_.wait( lock, [this] { return ending_ || !applying_; } );
   return !ending_;
}

} // namespace VeloAgent
