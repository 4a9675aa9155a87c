#pragma once

#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/detail/CompressedKeyTableSm.h"
#include "VeloSdkRpc/detail/PbrCountersBacklogChildSms.h"
#include "VeloSdkRpc/detail/ReconciledOutput.h"
#include "VeloSdkRpc/detail/TopLevelSm.h"

namespace VeloSdkRpc {

/// Files every change of the published counters into the backlog while a consumer watches, and
/// keeps the key compression table in step on the way: a new long key gets the next short key and
/// is novel, a class that goes loses its short key and is filed as deleted.
///
///    CountersData -> ClassCountersSm2 -> PolicyMapCountersSm1 -> RootSm0 -> eventToInput
///       counters present   pipeline 0   short key known   pipeline 4 --.
///                                       new long key      pipeline 3 --+-> 5 --.
///       counters absent    pipeline 1   ---------------------------------------+-> 2 -> backlog
///
/// Started over a backlog or a novel set that holds entries of a previous life, it deletes those
/// that its own scan did not write again.
///
/// Owner      the manager
/// Thread     event loop only
/// Re-entry   whoever hears of a backlog change may change the input or drop this machine
class VELO_SDK_RPC_EXPORT PbrCountersBacklogSm final
   : public detail::TopLevelSm< PbrCountersBacklogSm, IlexCode::PbrCountersBacklogSm::RootSm0,
                                IlexCode::PbrCountersBacklogSm::InputSmScanState,
                                IlexCode::PbrCountersBacklogSm::OutputState > {
   using Base = TopLevelSm;

 public:
   using RootSm0 = IlexCode::PbrCountersBacklogSm::RootSm0;
   using OutputState = IlexCode::PbrCountersBacklogSm::OutputState;
   using BacklogBacklogOutputKeyType = IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType;
   using ShortKeysNovelKeyOutputKeyType =
      IlexCode::PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType;
   using BacklogBacklogOutput = detail::ReconciledOutput< BacklogBacklogOutputKeyType >;
   using ShortKeysNovelKeyOutput = detail::ReconciledOutput< ShortKeysNovelKeyOutputKeyType >;
   using PolicyMapKey = PolicyMap::Counters::PolicyMapKey;
   using CountersValue = IlexCode::PbrCountersBacklogSm::CountersValue;
   using ShortKey = Quon::Optional< std::uint64_t >;

   static constexpr const char * kName = "PbrCountersBacklogSm";

   /// Fatal if `root`, `backlog` or `shortKeys` is null.
   PbrCountersBacklogSm( const Lumo::Ptr< const PolicyMapTypeCounters > & root,
                         const Lumo::Ptr< PbrCountersBacklog > & backlog,
                         const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                         const Ivx::SmControl & control );
   ~PbrCountersBacklogSm() override;

   const Quon::TypeData & typeData() const override;
   void quonDoZombieReactors( bool zombie ) override;

   const Lumo::Ptr< PbrCountersBacklog > & backlog() const { return backlog_; }
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys() const { return shortKeys_; }

   const Lumo::Ptr< RootSm0 > & rootSm0() const { return rootSm(); }
   /// Makes the machine of `en`, in place of the one before.
   void rootSm0Is( const Lumo::Ptr< const PolicyMapTypeCounters > & en,
                   PbrCountersBacklogSm * parent ) {
      rootSmIs( en, parent );
   }
   /// Detaches the machine and lets go of it.
   void rootSm0Del() { rootSmDel(); }

   /// @name Events
   /// One leaf at a time; nothing happens until the initial scan is done. O(1). The long key has an
   /// empty ACL rule. A deletion without a short key raises `Quon::BadOptionalAccess` after the
   /// short key has been deleted.
   /// @{
   /// `memo` may be null, or is the place to remember the class's short key in.
   void eventToInput( const PolicyMapKey & policyKey, const Lumo::String & name,
                      const CountersValue & countersValue, detail::ShortKeyMemo * memo = nullptr );
   void eventToIvx_pipeline0( const CountersValue & countersValue,
                              const PbrCountersKey & countersKey, const ShortKey & currentKey );
   void eventToIvx_pipeline1( const CountersValue & countersValue,
                              const PbrCountersKey & countersKey, const ShortKey & currentKey );
   void eventToIvx_pipeline2( const std::uint64_t & key, const bool & isDeleted,
                              const CountersValue & countersValue,
                              const PbrCountersKey & countersKey );
   void eventToIvx_pipeline3( const CountersValue & countersValue,
                              const PbrCountersKey & countersKey );
   void eventToIvx_pipeline4( const CountersValue & countersValue,
                              const PbrCountersKey & countersKey, const ShortKey & currentKey );
   void eventToIvx_pipeline5( const std::uint64_t & key, const CountersValue & countersValue,
                              const PbrCountersKey & countersKey );

   /// The last step of every rule: files `value` under `key`, which must be its own short key, or
   /// withdraws what is pending there if `value` is null. No rule withdraws anything today.
   void writeBacklog( std::uint64_t key, const PbrCounters * value );
   /// @}

   /// Whether changed counters of the class of `memo` are the common event: its short key is known,
   /// nothing is reconciled and nobody traces. What the rules above make of it then is one record
   /// in the backlog and nothing else.
   bool isCommon( const detail::ShortKeyMemo & memo ) const;

   /// @name Outputs
   /// Each is called once the input is scanned.
   /// @{
   /// Reconciles the backlog, if it must be, and declares it ready when that is done.
   void handleBacklogBacklogOutputInputReady();
   /// The same for the novel set.
   void handleShortKeysNovelKeyOutputInputReady();
   /// Declares the next key ready.
   void handleShortKeysNextKeyOutputInputReady();
   /// Declares the short keys ready.
   void handleShortKeysShortKeyOutputInputReady();
   /// @}

   /// @name Reconciliation of the backlog, see detail/ReconciledOutput.h
   /// @{
   bool backlogBacklogOutputReconciling() const { return backlogOutput_.reconciling(); }
   bool backlogBacklogOutputUseBookmark() const { return backlogOutput_.useBookmark(); }
   const ShortKey & backlogBacklogOutputBookmark() const { return backlogOutput_.bookmark(); }
   const BacklogBacklogOutput::Seen & backlogBacklogOutputSeen() const {
      return backlogOutput_.seen();
   }
   /// `key` has been written since the start and stays.
   void backlogBacklogOutputSeenIs( const BacklogBacklogOutputKeyType & key ) {
      backlogOutput_.seenIs( key );
   }
   /// `key` has not been written.
   void backlogBacklogOutputSeenDel( const BacklogBacklogOutputKeyType & key ) {
      backlogOutput_.seenDel( key );
   }
   /// No key has been written.
   void backlogBacklogOutputSeenDelAll() { backlogOutput_.seenDelAll(); }
   const Lumo::Ptr< Oru::Task > & backlogBacklogOutputReconciliationTask() const {
      return backlogOutput_.task();
   }
   /// Makes the task in which an asynchronous machine reconciles, in place of the one before.
   void backlogBacklogOutputReconciliationTaskIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                                                  Oru::TaskPriority taskPriority,
                                                  const Lumo::String & taskName ) {
      backlogOutput_.taskIs( scheduler, taskPriority, taskName, onBacklogOutputRun_ );
   }
   /// Legal from inside the task's own run.
   void backlogBacklogOutputReconciliationTaskDel() {
      backlogOutput_.taskDel( onBacklogOutputRun_ );
   }
   /// @}

   /// @name Reconciliation of the novel set, see detail/ReconciledOutput.h
   /// @{
   bool shortKeysNovelKeyOutputReconciling() const { return novelKeyOutput_.reconciling(); }
   bool shortKeysNovelKeyOutputUseBookmark() const { return novelKeyOutput_.useBookmark(); }
   const ShortKey & shortKeysNovelKeyOutputBookmark() const { return novelKeyOutput_.bookmark(); }
   const ShortKeysNovelKeyOutput::Seen & shortKeysNovelKeyOutputSeen() const {
      return novelKeyOutput_.seen();
   }
   /// `key` has been written since the start and stays.
   void shortKeysNovelKeyOutputSeenIs( const ShortKeysNovelKeyOutputKeyType & key ) {
      novelKeyOutput_.seenIs( key );
   }
   /// `key` has not been written.
   void shortKeysNovelKeyOutputSeenDel( const ShortKeysNovelKeyOutputKeyType & key ) {
      novelKeyOutput_.seenDel( key );
   }
   /// No key has been written.
   void shortKeysNovelKeyOutputSeenDelAll() { novelKeyOutput_.seenDelAll(); }
   const Lumo::Ptr< Oru::Task > & shortKeysNovelKeyOutputReconciliationTask() const {
      return novelKeyOutput_.task();
   }
   /// Makes the task in which an asynchronous machine reconciles, in place of the one before.
   void
   shortKeysNovelKeyOutputReconciliationTaskIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                                                Oru::TaskPriority taskPriority,
                                                const Lumo::String & taskName ) {
      novelKeyOutput_.taskIs( scheduler, taskPriority, taskName, onNovelKeyOutputRun_ );
   }
   /// Legal from inside the task's own run.
   void shortKeysNovelKeyOutputReconciliationTaskDel() {
      novelKeyOutput_.taskDel( onNovelKeyOutputRun_ );
   }
   /// @}

 private:
   friend Base;

   void assertArguments();
   void outputsBegin();
   void tasksBegin();
   void handleOutputs();

   void backlogOutputRun( Lumo::Publisher *, Lumo::Subscriber *, short, const void *,
                          const void * );
   void novelKeyOutputRun( Lumo::Publisher *, Lumo::Subscriber *, short, const void *,
                           const void * );

   /// The common shape of the two reconciled outputs' handlers.
   template< class Reconciled, class Collection, class Del, class TaskDel >
   void outputReconciled( const char * name, Reconciled & output, const Collection & collection,
                          Del && del, TaskDel && taskDel, IsReady isReady, ReadyIs readyIs );

   const Lumo::Ptr< PbrCountersBacklog > backlog_;
   const Lumo::Ptr< PbrCountersKeyCompressionTable > shortKeys_;
   BacklogBacklogOutput backlogOutput_;
   Lumo::MemberSubscriber< PbrCountersBacklogSm, &PbrCountersBacklogSm::backlogOutputRun >
      onBacklogOutputRun_{ this };
   ShortKeysNovelKeyOutput novelKeyOutput_;
   Lumo::MemberSubscriber< PbrCountersBacklogSm, &PbrCountersBacklogSm::novelKeyOutputRun >
      onNovelKeyOutputRun_{ this };
};

/// Both make the machine, which scans the input, and turn its notifications on.
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklogSm > pbrCountersBacklogSmFactory(
   const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersBacklog > & backlog,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control );
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklogSm >
PbrCountersBacklogSmIs( const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
                        const Lumo::Ptr< PbrCountersBacklog > & backlog,
                        const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                        const Ivx::SmControl & control );

} // namespace VeloSdkRpc
