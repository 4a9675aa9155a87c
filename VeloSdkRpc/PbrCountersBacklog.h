#pragma once

#include <cstdint>

#include "Oru/Oru.h"
#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/PbrCounters.h"
#include "VeloSdkRpc/detail/PbrCountersBacklogAccount.h"
#include "VeloSdkRpc/detail/PbrCountersEncodingFlags.h"
#include "VeloSdkRpc/detail/PbrCountersFrontend.h"
#include "VeloSdkRpc/detail/PbrCountersKey.h"
#include "VeloSdkRpc/detail/PbrCountersKeyCompressionTable.h"
#include "VeloSdkRpc/detail/ProcessBacklog.h"

namespace VeloSdkRpc {
namespace detail {
class ShortKeyMemo;
}

/// Pending records, at most one per short key, always the newest; and how they are drained.
///
/// Owner      the manager, for its whole life
/// Thread     event loop only (checked in debug builds)
/// Re-entry   subscribers and the frontend may do anything, see `process`
/// Invariant  every entry sits under its own short key
class VELO_SDK_RPC_EXPORT PbrCountersBacklog final : public Quon::PublishingEntity {
 public:
   /// The record carries its key.
   struct BacklogTraits : Quon::KeyTraits< std::uint64_t > {
      struct KeyFunktor {
         const std::uint64_t & operator()( const PbrCounters & c ) const { return c.shortKey(); }
      };
   };
   using Backlog = Quon::DenseMap2018< PbrCounters, BacklogTraits >;
   using HN_Backlog = Backlog::Node;

   /// The attributes; changes of `frontend` and `backlog` are published. What a subscriber throws
   /// passes through the call that made the change; the change stands.
   enum Attribute : short { kShortKeys = 1, kFrontend, kBacklog, kBookmark };

   /// Empty. `shortKeys` is shared with whoever assigns short keys; draining takes novelty from it.
   explicit PbrCountersBacklog( const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys );
   ~PbrCountersBacklog() override;

   const Quon::TypeData & typeData() const override;

   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys() const { return shortKeys_; }

   /// The consumer; null while nobody ever watched.
   const Lumo::Ptr< PbrCountersFrontend > & frontend() const { return frontend_; }
   /// From now on `frontend` is fed, in place of the one before; published if it is another one.
   void frontendIs( const Lumo::Ptr< PbrCountersFrontend > & frontend );
   bool watching() const { return static_cast< bool >( frontend_ ); }

   const Backlog & backlog() const { return backlog_; }

   /// Files `c` under its own short key, in place of what is pending there. An equal record changes
   /// and publishes nothing. O(1).
   void backlogIs( const PbrCounters & c );

   /// The common change: files the record of `counters` under the short key that `memo` has for
   /// `longKey`, which is made only if it is not pending already. `memo` is told that it is
   /// pending, before anybody else is told. O(1).
   void backlogIs( detail::ShortKeyMemo & memo, const PbrCountersKeyProbe & longKey,
                   const PbrCounters::Data & counters );

   /// The common change of a class whose record `memo` remembers as pending: nothing to do but to
   /// count it.
   void filedAgain() {
      ++account_.arrived;
      ++account_.coalesced;
   }

   /// How often records were taken away or replaced. As long as this stands still, a record that
   /// was pending still is.
   std::uint64_t withdrawals() const { return withdrawals_; }

   /// Removes and returns the record of `shortKey`; a default one, without a word, if there is
   /// none. O(1).
   PbrCounters backlogDel( std::uint64_t shortKey );

   /// Removes every record, telling each removal only if somebody listens. A subscriber that throws
   /// ends it: the records not yet removed stay.
   void backlogDelAll();

   /// What became of all the records that were ever filed. O(1).
   PbrCountersBacklogAccount account() const;

   /// Where the next draining run resumes.
   const Quon::Optional< std::uint64_t > & bookmark() const { return bookmark_; }

   /// One draining run: hands records to the frontend until `task`'s slice is used up, asks `task`
   /// to run again if any are left, then tells the frontend to `push`. Without a frontend the
   /// pending records are thrown away. O(processed + arrived).
   ///
   /// The frontend may write records (they wait for the next run), replace itself (the rest goes to
   /// its successor; to nobody if there is none), stop watching, and drop the last reference to
   /// this backlog or to `task`. If it throws, the record in hand, its novelty and all that was not
   /// handed over are pending again before the exception leaves, and the next run begins behind the
   /// record in hand. What `push` throws passes through; the records of the run are delivered.
   /// If it starts streaming anew, the run ends with the record in hand: see `allFiledAnew`.
   void process( const Lumo::Ptr< Oru::Task > & task );

   /// For whoever is about to file everything that exists, and then to withdraw what is pending but
   /// exists no more: what a run in progress has still in hand can be reached by neither, and is
   /// forgotten.
   void allFiledAnew() { ++filings_; }

   /// Hands one record to the frontend, with its flags: `encodeLongKey` if its short key was novel,
   /// which it is not afterwards, and `deleteKey` if the record says so. A record with both is of
   /// no use to the consumer and not handed over. If there is no frontend, or it throws, nobody was
   /// told and the short key is novel again, unless everything was filed anew meanwhile.
   void processItem( std::uint64_t shortKey, const PbrCounters & c );

 private:
   void runReported( const Lumo::Ptr< Oru::Task > & task,
                     const QuonLumo::MiBacklogProgress & progress );
   void runAccounted( std::uint64_t taken, bool outdated,
                      const QuonLumo::MiBacklogProgress & progress );

   const Lumo::Ptr< PbrCountersKeyCompressionTable > shortKeys_;
   Lumo::Ptr< PbrCountersFrontend > frontend_;
   Backlog backlog_;
   Quon::Optional< std::uint64_t > bookmark_;
   std::uint64_t filings_ = 0; ///< How often everything was filed anew.
   std::uint64_t withdrawals_ = 0;
   PbrCountersBacklogAccount account_; ///< But for `pending`.
};

/// Both make an empty backlog.
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklog >
pbrCountersBacklogFactory( const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys );
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklog >
PbrCountersBacklogIs( const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys );

} // namespace VeloSdkRpc

#include "VeloSdkRpc/detail/PbrCountersBacklogTask.h"
