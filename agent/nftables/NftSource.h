/// A table of the running kernel as a source: read and compared on a thread of its own, told on the
/// event loop.

#pragma once

#include "agent/EventLoop.h"
#include "agent/Source.h"
#include "agent/nftables/NftReader.h"
#include "agent/nftables/NftTable.h"

#include <chrono>
#include <optional>

namespace VeloAgent {

class NftSource final : public Source {
 public:
   NftSource( EventLoop & loop, SourceListener & listener, NftTableName table,
              std::chrono::milliseconds interval );

   /// Reads the table once before anything is told: throws std::runtime_error where that fails.
   void start() override;
   void changesApplied() override;

 private:
   void tell( NftFinding finding );

   EventLoop & loop_;
   SourceListener & listener_;
   NftTableName name_;
   std::chrono::milliseconds interval_;
   std::optional< NftReader > reader_;
};

} // namespace VeloAgent
