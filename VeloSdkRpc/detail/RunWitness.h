#pragma once

#include <cstdint>

#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/MiBacklogProgress.h"

namespace VeloSdkRpc {
class PbrCounters;
class PbrCountersBacklog;
} // namespace VeloSdkRpc

namespace VeloSdkRpc::detail {

/// Is told of every step of every draining run, as it is taken: for tests that replay the steps
/// against a model (test/RunConformance.h). Only builds with the debug checks tell it; in others a
/// run has no witness and its steps no cost.
///
/// Thread     event loop only
/// Re-entry   nothing may be changed while being told. Runs may be nested.
class VELO_SDK_RPC_EXPORT RunWitness {
 public:
   /// Nothing has been taken yet.
   virtual void runBegins( const PbrCountersBacklog & backlog ) = 0;
   /// Whether to yield, and the answer.
   virtual void asked( bool shouldYield ) = 0;
   /// A record is about to be handed over.
   virtual void item( std::uint64_t shortKey, const PbrCounters & record ) = 0;
   /// Whether what was taken is outdated, and the answer.
   virtual void askedIfOutdated( bool outdated ) = 0;
   /// What was not processed is back in its place; the last item threw if the run `broke`.
   virtual void runEnded( const QuonLumo::MiBacklogProgress & progress, bool broke ) = 0;

 protected:
   ~RunWitness() = default;
};

/// Null: nobody. Returns the one before. The witness must outlive the runs that begin now.
VELO_SDK_RPC_EXPORT RunWitness * runWitnessIs( RunWitness * witness );
RunWitness * runWitness();

#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS

/// One run, as its witness is told of it.
class WitnessedRun {
 public:
   explicit WitnessedRun( const PbrCountersBacklog & backlog ) {
      if ( witness_ ) { witness_->runBegins( backlog ); }
   }
   bool asked( bool shouldYield ) const {
      if ( witness_ ) { witness_->asked( shouldYield ); }
      return shouldYield;
   }
   void item( std::uint64_t shortKey, const PbrCounters & record ) const {
      if ( witness_ ) { witness_->item( shortKey, record ); }
   }
   bool askedIfOutdated( bool outdated ) const {
      if ( witness_ ) { witness_->askedIfOutdated( outdated ); }
      return outdated;
   }
   void ended( const QuonLumo::MiBacklogProgress & progress, bool broke ) const {
      if ( witness_ ) { witness_->runEnded( progress, broke ); }
   }

 private:
   RunWitness * const witness_ = runWitness();
};

#else

class WitnessedRun {
 public:
   explicit WitnessedRun( const PbrCountersBacklog & ) {}
   bool asked( bool shouldYield ) const { return shouldYield; }
   void item( std::uint64_t, const PbrCounters & ) const {}
   bool askedIfOutdated( bool outdated ) const { return outdated; }
   void ended( const QuonLumo::MiBacklogProgress &, bool ) const {}
};

#endif

} // namespace VeloSdkRpc::detail
