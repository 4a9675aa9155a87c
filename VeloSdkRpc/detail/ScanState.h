#pragma once

#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"

namespace VeloSdkRpc::detail {

/// How far the input scans of a state machine are. The root machine sets `inputScan` at the end of
/// a pass, the top-level machine consumes it and sets `idle` once events count.
///
/// Owner      the top-level state machine, which also listens to it
/// Thread     event loop only
class VELO_SDK_RPC_EXPORT ScanStateRecord : public Quon::PublishingEntity {
 public:
   enum Attribute : short { kInputScan = 1, kIdle };

   ~ScanStateRecord() override;

   bool inputScan() const { return inputScan_; }
   void inputScanIs( bool inputScan );

   bool idle() const { return idle_; }
   void idleIs( bool idle );

   /// The reaction to a change of `idle`: nothing follows from it here.
   void handleIdle() {}

   static constexpr std::string_view kAttributes[] = { "inputScan", "idle" };

 private:
   bool inputScan_ = false;
   bool idle_ = false;
};

} // namespace VeloSdkRpc::detail
