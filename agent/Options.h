/// What the agent is asked to do: the command line and the configuration file, checked where they
/// enter.
///
/// A bad option ends in an OptionsError whose text, one line, says what was wrong and what would be
/// right. Options that belong to the source not chosen are refused, not ignored.

#pragma once

#include "agent/OptionsError.h"
#include "agent/SyntheticChanges.h"
#include "agent/nftables/NftTable.h"
#include "agent/rpc/RpcServerOptions.h"
#include "agent/stream/StreamOptions.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VeloAgent {

/// none: counters come from RPC clients only, as they may anyway.
enum class SourceKind { synthetic, nftables, none };
/// none: no lines; what is to be noted goes to standard error.
enum class OutputFormat { json, text, none };

struct Options {
   SourceKind source = SourceKind::synthetic;
   SyntheticOptions synthetic;
   NftTableName table;
   std::chrono::milliseconds interval{ 1000 };
   OutputFormat format = OutputFormat::json;
   /// End by itself after this time, or after this many records.
   std::optional< std::chrono::milliseconds > duration;
   std::optional< std::uint64_t > maxRecords;
   RpcServerOptions rpc;
   std::string metricsAddress; ///< HOST:PORT; empty: no metrics.
   std::string recordFile;     ///< Empty: nothing is recorded.
   StreamOptions stream;

   /// Set when the command line asks a question (--help, --version): print this and do nothing
   /// else.
   std::optional< std::string > answer;
};

/// `arguments` without the program's name. Throws OptionsError.
Options optionsFrom( const std::vector< std::string > & arguments );

} // namespace VeloAgent
