/// What one client of the PBR counters stream knows, and what it has yet to be told.
///
///      short keys   1 ··········· walkedTo ············ walkEnd ········►
///                   │   walked      │   to be walked      │  newer than the walk
///                   └─── dirty ─────┘                     └──── dirty ──
///
/// A client begins with a walk over all keys that are published then, in the order of the keys. A
/// key that changes where the walk has been, or where it will not come, is dirty; the others will
/// be met by the walk. Behind the walk the dirty keys are told in sweeps, each in the order of the
/// keys: a key that becomes dirty behind the sweep waits for the next one, so every sweep ends. The
/// walk and the sweep that follows it are one batch, and every later sweep is one.
///
/// Only keys are kept. Values are read when they are told, so that whoever is slow gets the newest.
///
/// Owner      whoever serves the client
/// Thread     event loop only
/// Memory     an eighth of a byte for each key told and each key dirty, while they are dense; with
///            `KeepLongKeys::yes` also the long keys of what has gone and has not been forgotten
/// Invariant  a dirty key is published, or told, or both

#pragma once

#include "VeloSdkRpc/PbrCountersBacklog.h"

#include <algorithm>
#include <cstdint>

namespace VeloAgent {

/// The published state as delivered, by short key.
using PbrLatest = VeloSdkRpc::PbrCountersBacklog::Backlog;

/// One thing that a client is to be told.
struct PbrNews {
   std::uint64_t shortKey;
   const VeloSdkRpc::PbrCounters * record;     ///< Null: the key is gone.
   const VeloSdkRpc::PbrCountersKey * longKey; ///< Null: gone, and not kept.
   bool first;                                 ///< The client has not been told the key before.
};

class PbrClientKeys {
 public:
   using Keys = Quon::DenseMap2018<>;
   /// Of keys that are gone, until they are forgotten.
   enum class KeepLongKeys { no, yes };

   /// `latest` outlives this; `lastKey` is the largest key that was ever in it.
   PbrClientKeys( const PbrLatest & latest, std::uint64_t lastKey, KeepLongKeys keep )
      : latest_( latest ), walkEnd_( lastKey + 1 ), keep_( keep ) {}

   /// @name What is published changes; told of behind the change
   /// @{
   void changed( std::uint64_t key ) {
      if ( key < walkedTo_ || key >= walkEnd_ ) { dirty_.memberIs( key ); }
   }
   void gone( std::uint64_t key, const VeloSdkRpc::PbrCountersKey & longKey );
   /// @}

   /// Whether there is anything to tell, or a batch to be ended.
   bool hasNews() const { return walking() || inBatch_ || !dirty_.empty(); }

   /// Tells one thing after the other to `take( const PbrNews & )`, until that returns false or the
   /// batch ends. What was taken is told. Returns whether the batch ended.
   template< class Take >
   bool tell( Take take );

   /// What was told last is undone, to be told again: `first` and `gone` as it was told. Must be
   /// done in the reverse order of the telling.
   void untell( std::uint64_t key, bool first, bool gone );

   /// Messages that ended or went on with a batch were undone: there will be an end of batch.
   void tellAgain() { inBatch_ = true; }

   /// Untelling will not be asked for a key that was told to be gone.
   void forget( std::uint64_t key ) { goneLongKeys_.deleteMember( key ); }

   /// A batch has begun and not ended.
   bool inBatch() const { return inBatch_; }
   bool walking() const { return walkedTo_ < walkEnd_; }
   std::size_t told() const { return told_.size(); }
   /// How many keys there are to tell, at least.
   std::size_t pending() const;

 private:
   bool isTold( std::uint64_t key ) const { return static_cast< bool >( told_[key] ); }
   bool isGone( std::uint64_t key ) const { return !latest_[key]; }
   /// Nothing is dirty in front of the sweep.
   bool sweepEnds() const { return !dirty_.checkedIteratorFrom( sweptTo_ ); }
   PbrNews newsOf( const VeloSdkRpc::PbrCounters & record );
   PbrNews newsOf( std::uint64_t key );

   template< class Take >
   bool walk( Take & take );
   template< class Take >
   bool sweep( Take & take );

   const PbrLatest & latest_;
   Keys told_;
   Keys dirty_;
   std::uint64_t walkedTo_ = 0;
   std::uint64_t walkEnd_;
   std::uint64_t sweptTo_ = 0;
   bool inBatch_ = false;
   KeepLongKeys keep_;
   Quon::DenseMap2018< VeloSdkRpc::PbrCountersKey > goneLongKeys_;
};

template< class Take >
bool PbrClientKeys::tell( Take take ) {
   inBatch_ = true;
   const bool goesOn = walk( take ) && sweep( take );
   if ( walking() || ( !goesOn && !sweepEnds() ) ) { return false; }
   sweptTo_ = 0;
   inBatch_ = false;
   return true;
}

/// Returns whether `take` would go on.
template< class Take >
bool PbrClientKeys::walk( Take & take ) {
   if ( !walking() ) { return true; }
   for ( auto at = latest_.checkedIteratorFrom( walkedTo_ ); at && at->fwkKey() < walkEnd_; ++at ) {
      walkedTo_ = at->fwkKey() + 1;
      if ( !take( newsOf( at->value() ) ) ) { return false; }
   }
   walkedTo_ = walkEnd_;
   return true;
}

template< class Take >
bool PbrClientKeys::sweep( Take & take ) {
   const std::uint64_t from = sweptTo_;
   bool goesOn = true;
   for ( auto at = dirty_.checkedIteratorFrom( from ); at && goesOn; ++at ) {
      sweptTo_ = at->fwkKey() + 1;
      goesOn = take( newsOf( at->fwkKey() ) );
   }
   dirty_.deleteBetween( from, sweptTo_ );
   return goesOn;
}

} // namespace VeloAgent
