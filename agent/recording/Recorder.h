/// Writes down what the south side publishes, to be replayed later.
///
///    event loop                       the recorder's thread
///    published( batch ) ── queue ───► entry ──► file
///
/// The loop never waits for the disk. Where the disk is full, or so slow that the queue exceeds its
/// bound, the recording ends and somebody is told; what was recorded before can be replayed.
///
/// Owner      the agent
/// Thread     event loop; `ended` is called on a thread of its own
/// Invariant  batches are in the file in the order in which they were published, without a gap

#pragma once

#include "agent/CounterChanges.h"
#include "agent/recording/RecordingFile.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace velo::rpc::v1 {
class PublishMplsRoutesRequest;
class PublishNexthopGroupsRequest;
} // namespace velo::rpc::v1

namespace VeloAgent {

class Recorder {
 public:
   /// What may wait for the disk, in changes.
   static constexpr std::size_t kLongestQueue = 1'000'000;

   /// Begins a recording in the file `path`. `ended` is told why it ended before this did. Throws
   /// std::runtime_error with a text that says why it cannot.
   Recorder( const std::string & path, std::function< void( const std::string & ) > ended,
             std::size_t longestQueue = kLongestQueue );

   /// Writes what waits.
   ~Recorder();
   Recorder( const Recorder & ) = delete;
   Recorder & operator=( const Recorder & ) = delete;

   /// A batch that is about to be applied. Nothing once the recording has ended.
   void published( const CounterChanges & changes );
   void published( const velo::rpc::v1::PublishMplsRoutesRequest & request );
   void published( const velo::rpc::v1::PublishNexthopGroupsRequest & request );

 private:
   using Clock = std::chrono::steady_clock;
   using Fill = std::function< void( velo::rpc::v1::RecordingEntry & ) >;

   /// One batch, as it waits: turning it into an entry is work for the other thread.
   struct Batch {
      std::uint64_t atUs;
      std::size_t changes;
      Fill fill;
   };

   void add( std::size_t changes, Fill fill );
   void run();
   void write( const Batch & batch );
   void end( const std::string & why );

   RecordingFile file_;
   const std::function< void( const std::string & ) > ended_;
   const std::size_t longestQueue_;
   const Clock::time_point began_ = Clock::now();

   std::mutex mutex_;
   std::condition_variable changed_;
   std::deque< Batch > queue_;
   std::size_t queued_ = 0; ///< Changes in the queue.
   bool overflown_ = false;
   bool closing_ = false;
   bool over_ = false; ///< The recording has ended.

   std::thread thread_; ///< The last: it uses all of the above.
};

} // namespace VeloAgent
