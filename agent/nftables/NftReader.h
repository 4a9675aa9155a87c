/// The thread on which a table is read and compared, so that the event loop never waits for it.
///
/// Owner      the source, on the event loop; the destructor ends the thread and waits for it
/// Thread     `deliver` is called on the reader's own thread, everything else on the owner's
/// Invariant  at most one finding with changes is on its way: the next reading waits until the last
///            changes have been applied. Counters are absolute, so a reading that comes later says
///            all that those left out would have said, and a slow loop never makes a queue grow.

#pragma once

#include "agent/nftables/NftPoller.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace VeloAgent {

class NftReader {
 public:
   using Deliver = std::function< void( NftFinding ) >;

   NftReader( NftPoller poller, Deliver deliver );
   ~NftReader();
   NftReader( const NftReader & ) = delete;
   NftReader & operator=( const NftReader & ) = delete;

   /// Delivers `first` and goes on reading when the time it says has passed. Once only.
   void start( NftFinding first );

   /// The changes of the last finding are applied.
   void changesApplied();

 private:
   void run( NftFinding first );
   /// False when the thread shall end.
   bool waitForNext( std::chrono::steady_clock::time_point due );

   NftPoller poller_;
   Deliver deliver_;

   std::mutex mutex_;
   std::condition_variable wake_;
   bool ending_ = false;
   bool applying_ = false;

   std::thread thread_;
};

} // namespace VeloAgent
