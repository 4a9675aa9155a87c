#include "VeloSdkRpc/detail/ScanState.h"

namespace VeloSdkRpc::detail {

ScanStateRecord::~ScanStateRecord() = default;

void ScanStateRecord::inputScanIs( bool inputScan ) {
   const bool old = std::exchange( inputScan_, inputScan );
   publisher()->publishChangeRecursive( kInputScan, nullptr, &old, old == inputScan, &inputScan );
}

void ScanStateRecord::idleIs( bool idle ) {
   const bool old = std::exchange( idle_, idle );
   if ( old == idle ) { return; }
   handleIdle();
   publisher()->publishChangeRecursive( kIdle, nullptr, &old, false, &idle );
}

} // namespace VeloSdkRpc::detail
