/// Metrics that live on the event loop, for those who ask on other threads:
///
///    a thread of the exposer              event loop
///    Collect() ───────── post ─────────►  collect()
///        waits ◄──────────────────────────  the families
///        for so long at most
///
/// A loop that does not answer in time is told as such, and disturbs nobody: what it answers later
/// is dropped.
///
/// Owner      the metrics, and exposer threads while they ask
/// Thread     any, but for `collect`

#pragma once

#include "agent/EventLoop.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <prometheus/collectable.h>

namespace VeloAgent {

class LoopCollectable final : public prometheus::Collectable,
                              public std::enable_shared_from_this< LoopCollectable > {
 public:
   using Families = std::vector< prometheus::MetricFamily >;

   /// `collect` is called on `loop`, which outlives this. To be held by a std::shared_ptr.
   LoopCollectable( EventLoop & loop, std::function< Families() > collect,
                    std::chrono::milliseconds patience )
      : loop_( loop ), collect_( std::move( collect ) ), patience_( patience ) {}

   /// What the loop says, and whether it did.
   Families Collect() const override;

   /// Nobody waits any more, and `collect` is not called again. On the loop, or when it is over.
   void close();

 private:
   struct Answer {
      bool there = false;
      Families families;
   };

   void answer( Answer & to ) const;

   EventLoop & loop_;
   const std::function< Families() > collect_;
   const std::chrono::milliseconds patience_;
   mutable std::mutex mutex_;
   mutable std::condition_variable changed_;
   bool closed_ = false;
};

} // namespace VeloAgent
