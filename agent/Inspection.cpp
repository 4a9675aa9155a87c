#include "agent/Inspection.h"

namespace VeloAgent {

std::chrono::milliseconds Inspection::uptime() const {
   using std::chrono::steady_clock;
   return std::chrono::duration_cast< std::chrono::milliseconds >( steady_clock::now() -
                                                                   beganSteady_ );
}

PbrStreamReport Inspection::pbrStream() const {
   const VeloSdkRpc::PbrPolicyCountersMgr & counters = managers_.pbrCounters();
   PbrStreamReport report;
   if ( const auto & machine = counters.pbrCountersBacklogSm() ) {
      report.streaming = true;
      report.initialScanDone = machine->initialScanDone();
   } else if ( const auto & idle = counters.compressedKeyTableSm() ) {
      report.initialScanDone = idle->initialScanDone();
   }
   if ( const auto & table = counters.shortKeys() ) {
      report.shortKeys = table->shortKey().size();
      report.lastShortKey = table->nextKey();
      report.novelKeys = table->novelKey().size();
   }
   if ( const auto & backlog = counters.backlog() ) {
      report.account = backlog->account();
      report.backlog = report.account.pending;
      if ( const auto & bookmark = backlog->bookmark() ) { report.bookmark = *bookmark; }
   }
   return report;
}

std::vector< VeloSdkRpc::MplsRouteHwProgrammingSm::ParkedRoutes > Inspection::parkedRoutes() const {
   const auto & machine = managers_.mplsRoutes().sm();
   if ( !machine ) { return {}; }
   return machine->parkedRoutes();
}

} // namespace VeloAgent
