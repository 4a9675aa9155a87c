/// How far long work is, for people who wait for it: one line of standard error, written over and
/// over, if that is a terminal.

#pragma once

#include "agent/veloctl/Session.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace VeloCtl {

class Progress {
 public:
   using Time = std::chrono::steady_clock::time_point;

   /// "WHAT 1000 of 50000", by the time that `now` tells.
   Progress( const Streams & streams, std::string what, std::uint64_t total,
             std::function< Time() > now = std::chrono::steady_clock::now );
   /// Takes the line away.
   ~Progress();
   Progress( const Progress & ) = delete;
   Progress & operator=( const Progress & ) = delete;

   void doneIs( std::uint64_t done );

 private:
   std::ostream * const to_;
   const std::string what_;
   const std::uint64_t total_;
   const std::function< Time() > now_;
   Time shownAt_;
};

} // namespace VeloCtl
