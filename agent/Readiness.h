/// When the agent is ready to serve: the mounts are complete and the first scan of the counters is
/// done. From then on it stays so.
///
/// Owner      the agent
/// Thread     event loop only

#pragma once

#include "VeloSdkRpc/PbrCountersMgr.h"

#include <functional>

namespace VeloAgent {

class Readiness final : public Lumo::Node {
 public:
   /// `ready` is called once, at the earliest from inside watch().
   explicit Readiness( std::function< void() > ready ) : ready_( std::move( ready ) ) {}

   /// `counters` streams: its mounts are complete.
   void watch( const VeloSdkRpc::PbrPolicyCountersMgr & counters );

   bool ready() const { return !ready_; }

 private:
   void onChange( Lumo::Publisher *, Lumo::Subscriber *, short, const void *, const void * );
   void look();

   std::function< void() > ready_; ///< Empty once it was called.
   Lumo::Ptr< VeloSdkRpc::PbrCountersBacklogSm > machine_;
   Lumo::MemberSubscriber< Readiness, &Readiness::onChange > onScanState_{ this };
};

} // namespace VeloAgent
