/// The synthetic sequence of changes, in time: first the whole population as fast as the tree takes
/// it, then so many changes per second.
///
/// Changes that fall due while a portion is being applied come with the next one. What falls due
/// beyond one second is dropped: a loop that cannot keep up is late by no more than that.

#pragma once

#include "agent/EventLoop.h"
#include "agent/Source.h"
#include "agent/SyntheticChanges.h"

#include <asio/steady_timer.hpp>
#include <chrono>

namespace VeloAgent {

class SyntheticSource final : public Source {
 public:
   SyntheticSource( EventLoop & loop, SourceListener & listener, const SyntheticOptions & options );

   void start() override;
   void changesApplied() override;

 private:
   using Clock = std::chrono::steady_clock;

   void offer( std::size_t count );
   void waitForTick();
   void tick();
   std::size_t due();

   SourceListener & listener_;
   SyntheticChanges changes_;
   std::size_t toAppear_;
   std::uint32_t changesPerSecond_;
   bool applying_ = false;
   Clock::time_point paidUntil_;
   asio::steady_timer timer_;
};

} // namespace VeloAgent
