/// The PBR counters as a live table: the busiest classes with their rates, as many as there is room
/// for.

#pragma once

#include "agent/veloctl/PbrReader.h"
#include "agent/veloctl/Screen.h"

#include <chrono>
#include <functional>
#include <string>
#include <unordered_map>

namespace VeloCtl {

class PbrLive final : public PbrView {
 public:
   using Time = std::chrono::steady_clock::time_point;

   /// Draws every `interval`, by the time that `now` tells.
   PbrLive( Screen screen, std::string title, std::chrono::milliseconds interval,
            std::function< Time() > now );

   /// What to draw; outlives this. Set before anything is shown.
   void readerIs( const PbrReader & reader ) { reader_ = &reader; }

   void opened( const std::string & outcome ) override;
   void record( const VeloAgent::DeliveredRecord & record ) override;
   void push( std::uint64_t ) override {}
   void inSync() override { state_ = "in sync"; }
   void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) override;
   void tick() override;

 private:
   struct Row;

   void draw( Time at );
   std::vector< Row > rowsAfter( double seconds );

   Screen screen_;
   const std::string title_;
   const std::chrono::milliseconds interval_;
   const std::function< Time() > now_;
   const PbrReader * reader_ = nullptr;

   std::string state_ = "connecting";
   Time drawnAt_;
   std::uint64_t records_ = 0;                                        ///< Since then.
   std::unordered_map< std::uint64_t, VeloAgent::Counters > counted_; ///< As drawn then.
};

} // namespace VeloCtl
