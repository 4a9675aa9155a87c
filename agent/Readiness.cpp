#include "agent/Readiness.h"

#include <utility>

namespace VeloAgent {

void Readiness::watch( const VeloSdkRpc::PbrPolicyCountersMgr & counters ) {
   machine_ = counters.pbrCountersBacklogSm();
   machine_->inputSmScanState()->publisher()->subscriberAdd( onScanState_ );
   look();
}

void Readiness::onChange( Lumo::Publisher *, Lumo::Subscriber *, short, const void *,
                          const void * ) {
   look();
}

void Readiness::look() {
   if ( !machine_->initialScanDone() ) { return; }
   onScanState_.unlink();
   machine_ = nullptr;
   std::exchange( ready_, {} )();
}

} // namespace VeloAgent
