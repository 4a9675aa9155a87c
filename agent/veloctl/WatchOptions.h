/// The options that all streams have, when they are watched.

#pragma once

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Session.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace VeloCtl {

struct WatchOptions {
   std::uint64_t count = UINT64_MAX;
   std::chrono::milliseconds interval{ 1000 };
   bool plain = false;
   bool noRetry = false;

   /// Whether people look at it.
   bool live( const Session & session ) const {
      return session.streams.outIsTerminal && !session.json() && !plain;
   }
};

/// `options` lives as long as `command`.
void addWatchOptions( CLI::App & command, WatchOptions & options, const std::string & countHelp );

} // namespace VeloCtl
