/// How far long work is, for people who wait for it: one line of standard error, written over and
/// over, if that is a terminal.

#pragma once

#include "agent/veloctl/Session.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace VeloCtl {

class Progress {
 public:
   /// "WHAT 1000 of 50000"
   Progress( const Streams & streams, std::string what, std::uint64_t total );
   /// Takes the line away.
   ~Progress();
   Progress( const Progress & ) = delete;
   Progress & operator=( const Progress & ) = delete;

   void doneIs( std::uint64_t done );

 private:
   std::ostream * const to_;
   const std::string what_;
   const std::uint64_t total_;
   std::chrono::steady_clock::time_point shownAt_;
};

} // namespace VeloCtl
