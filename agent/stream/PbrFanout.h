/// One consumer for the library, many for the agent: what the library delivers is kept by short
/// key, and every client is told of it at its own speed.
///
///    library ──appendItem, push──► latest ◄── read ── followers ──► their transports
///                                    │                   ▲
///                                    └── key changed ────┘     composed by a task, in slices
///
/// The library's run ends with its push before the loop does anything else, so what followers read
/// while they compose is the state at a push.
///
/// Owner      the agent, and the backlog that feeds it; it watches once and for ever
/// Thread     event loop only
/// Cost       a record costs every follower one bit to be set in a set
/// Invariant  `latest` is the published state as delivered

#pragma once

#include "agent/stream/PbrClientKeys.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace VeloSdkRpc {
class PbrPolicyCountersMgr;
} // namespace VeloSdkRpc

namespace VeloAgent {

/// Somebody who is told of everything: with keys of its own, in messages of its own.
class PbrFollower {
 public:
   explicit PbrFollower( PbrClientKeys keys ) : keys_( std::move( keys ) ) {}
   virtual ~PbrFollower() = default;
   PbrFollower( const PbrFollower & ) = delete;
   PbrFollower & operator=( const PbrFollower & ) = delete;

   /// Whether there is something to tell and room for it.
   virtual bool ready() const = 0;
   /// Tells a portion of it. Only while `ready()`. Ends early where `task` should yield.
   virtual void compose( Oru::Task & task ) = 0;

 protected:
   PbrClientKeys keys_;

 private:
   friend class PbrFanout;
};

class PbrFanout final : public VeloSdkRpc::PbrCountersFrontend {
 public:
   /// As urgent as the task that drains the library's backlog: the two take turns.
   static constexpr Oru::TaskPriority kPriority = 3;

   /// To watch `mgr`, which outlives this.
   PbrFanout( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
              const VeloSdkRpc::PbrPolicyCountersMgr & mgr );
   ~PbrFanout() override;

   void appendItem( const VeloSdkRpc::PbrCounters & record,
                    VeloSdkRpc::PbrCountersEncodingFlags flags ) override;
   void push() override;

   const PbrLatest & latest() const { return latest_; }
   /// Whether every class that the library's first scan has found was delivered, be it with
   /// counters that have changed since: `latest` lags behind by changes only, however many these
   /// are. From then on it stays so.
   bool complete() const;
   /// Whether `latest` holds all that exists, changes too. Under changes that never pause it may
   /// never be so.
   bool allDelivered() const;

   /// The keys of a client who begins now.
   PbrClientKeys keysOfNewClient( PbrClientKeys::KeepLongKeys keep ) const {
      return { latest_, lastKey_, keep };
   }

   /// `follower` must be taken out before it goes.
   void followerIs( PbrFollower & follower );
   void followerDel( PbrFollower & follower );

   /// Some follower may be ready now that was not.
   void wakeUp() { task_->scheduleTask(); }

 private:
   void composingRun( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void *,
                      const void * );

   const Lumo::Ptr< Oru::Task > task_;
   const VeloSdkRpc::PbrPolicyCountersMgr & mgr_;
   /// @name What complete() has found so far
   /// @{
   mutable std::optional< std::uint64_t > lastOfScan_; ///< No short key of the scan is larger.
   mutable bool complete_ = false;
   /// @}
   PbrLatest latest_;
   std::uint64_t lastKey_ = 0; ///< The largest that was ever delivered.
   std::vector< PbrFollower * > followers_;
   std::size_t next_ = 0; ///< Whose turn it is.
   Lumo::MemberSubscriber< PbrFanout, &PbrFanout::composingRun > onRun_{ this };
};

} // namespace VeloAgent
