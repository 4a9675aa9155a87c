/// The consumer of the stream: writes each record and each push as a line.
///
/// Keys that were known before watching began are not announced as new, so this keeps the set of
/// short keys that its reader has been told, and gives the long key with the first record of any
/// other. A deleted key leaves the set: it never comes back.
///
/// Owner      the agent, and the backlog that feeds it
/// Thread     event loop only

#pragma once

#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "agent/LineFormat.h"
#include "agent/Output.h"

#include <cstdint>
#include <functional>
#include <unordered_set>

namespace VeloAgent {

class StreamFrontend final : public VeloSdkRpc::PbrCountersFrontend {
 public:
   /// `format` and `output` outlive this.
   StreamFrontend( const LineFormat & format, Output & output )
      : format_( format ), output_( output ) {}

   void appendItem( const VeloSdkRpc::PbrCounters & record,
                    VeloSdkRpc::PbrCountersEncodingFlags flags ) override;
   void push() override;

   /// Writes no record after `count` of them, and calls `full` once.
   void maxRecordsAre( std::uint64_t count, std::function< void() > full );

   /// How many keys the reader knows now.
   std::size_t told() const { return told_.size(); }

 private:
   /// Whether the reader has not been told what the record's short key stands for.
   bool isNews( const VeloSdkRpc::PbrCounters & record );

   const LineFormat & format_;
   Output & output_;
   std::unordered_set< std::uint64_t > told_;
   std::uint64_t sincePush_ = 0;
   std::uint64_t mayFollow_ = UINT64_MAX;
   std::function< void() > full_;
};

} // namespace VeloAgent
