/// MPLS routes as a live table: those told last come first.

#pragma once

#include "agent/veloctl/Screen.h"
#include "velo/rpc/v1/mpls_route_programming.pb.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace VeloCtl {

class MplsLive {
 public:
   using Time = std::chrono::steady_clock::time_point;

   /// Draws every `interval`, by the time that `now` tells.
   MplsLive( Screen screen, std::chrono::milliseconds interval, std::function< Time() > now );

   void state( const std::string & what );
   void route( const velo::rpc::v1::MplsProgrammedRoute & route );
   void tick();

 private:
   void draw( Time at );

   Screen screen_;
   const std::chrono::milliseconds interval_;
   const std::function< Time() > now_;

   std::string state_ = "connecting";
   Time drawnAt_;
   std::uint64_t all_ = 0;
   std::uint64_t drawn_ = 0; ///< Of all, those that came before the last drawing.
   std::deque< velo::rpc::v1::MplsProgrammedRoute > latest_;
};

} // namespace VeloCtl
