#include "VeloSdkRpc/PbrCountersBacklogSm.h"

namespace VeloSdkRpc {

PbrCountersBacklogSm::PbrCountersBacklogSm(
   const Lumo::Ptr< const PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersBacklog > & backlog,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control )
   : Base( root, control ), backlog_( backlog ), shortKeys_( shortKeys ) {
   handleInitialized();
}

/// `shortKeys`, `backlog` and `root` follow, as members do.
PbrCountersBacklogSm::~PbrCountersBacklogSm() {
   reactionsEnd();
   qtHandleDel();
   schedulerIs( nullptr );
   shortKeysNovelKeyOutputReconciliationTaskDel();
   shortKeysNovelKeyOutputSeenDelAll();
   backlogBacklogOutputReconciliationTaskDel();
   backlogBacklogOutputSeenDelAll();
   rootSm0Del();
   outputStateDel();
   inputSmScanStateDel();
}

const Quon::TypeData & PbrCountersBacklogSm::typeData() const {
   static constexpr std::string_view kAttributes[] = { "root",
                                                       "backlog",
                                                       "shortKeys",
                                                       "inputSmScanState",
                                                       "outputState",
                                                       "rootSm0",
                                                       "backlogBacklogOutputSeen",
                                                       "backlogBacklogOutputReconciliationTask",
                                                       "backlogBacklogOutputBookmark",
                                                       "shortKeysNovelKeyOutputSeen",
                                                       "shortKeysNovelKeyOutputReconciliationTask",
                                                       "shortKeysNovelKeyOutputBookmark",
                                                       "backlogBacklogOutputReconciling",
                                                       "backlogBacklogOutputUseBookmark",
                                                       "shortKeysNovelKeyOutputReconciling",
                                                       "shortKeysNovelKeyOutputUseBookmark",
                                                       "handleBacklogBacklogOutputInputReady",
                                                       "handleShortKeysNovelKeyOutputInputReady",
                                                       "handleShortKeysNextKeyOutputInputReady",
                                                       "handleShortKeysShortKeyOutputInputReady",
                                                       "doDeleteAll",
                                                       "ilexControl",
                                                       "scheduler",
                                                       "taskName",
                                                       "taskPriority",
                                                       "synchronous",
                                                       "defaultSynchronous",
                                                       "priority",
                                                       "idle",
                                                       "ready",
                                                       "initialScanDone",
                                                       "handleInitialScanDone",
                                                       "initialized",
                                                       "handleInitialized" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::PbrCountersBacklogSm", kAttributes };
   return kType;
}

void PbrCountersBacklogSm::quonDoZombieReactors( bool zombie ) {
   Base::quonDoZombieReactors( zombie );
}

// Start -------------------------------------------------------------------------------------------

void PbrCountersBacklogSm::tasksBegin() {
   backlogBacklogOutputReconciliationTaskIs( scheduler(), priority(),
                                             "PbrCountersBacklogSm-backlogBacklogOutputTask" );
   shortKeysNovelKeyOutputReconciliationTaskIs(
      scheduler(), priority(), "PbrCountersBacklogSm-shortKeysNovelKeyOutputTask" );
}

void PbrCountersBacklogSm::assertArguments() {
   LUMO_ASSERT( backlog() && "Pointer SM args cannot be null unless they are marked Optional" );
   LUMO_ASSERT( shortKeys() && "Pointer SM args cannot be null unless they are marked Optional" );
}

void PbrCountersBacklogSm::outputsBegin() {
   backlogOutput_.reconcilingIs( !backlog_->backlog().empty() );
   LUMO_TRACE( traceHandle(), 9, "Reconciling backlogBacklogOutput: {:}",
               backlogOutput_.reconciling() );
   novelKeyOutput_.reconcilingIs( !shortKeys_->novelKey().empty() );
   LUMO_TRACE( traceHandle(), 9, "Reconciling shortKeysNovelKeyOutput: {:}",
               novelKeyOutput_.reconciling() );
}

// Outputs -----------------------------------------------------------------------------------------

/// An output that breaks does not keep the others from becoming ready: nobody would call their
/// handlers again.
void PbrCountersBacklogSm::handleOutputs() {
   detail::FirstException broken;
   broken.guard( [this] { handleBacklogBacklogOutputInputReady(); } );
   broken.guard( [this] { handleShortKeysNovelKeyOutputInputReady(); } );
   if ( initialized() ) {
      broken.guard( [this] { handleShortKeysNextKeyOutputInputReady(); } );
      broken.guard( [this] { handleShortKeysShortKeyOutputInputReady(); } );
   }
   broken.rethrow();
}

void PbrCountersBacklogSm::handleShortKeysNextKeyOutputInputReady() {
   outputReadyWhenScanned( "shortKeysNextKeyOutput", &OutputState::shortKeysNextKeyOutputReady,
                           &OutputState::shortKeysNextKeyOutputReadyIs );
}

void PbrCountersBacklogSm::handleShortKeysShortKeyOutputInputReady() {
   outputReadyWhenScanned( "shortKeysShortKeyOutput", &OutputState::shortKeysShortKeyOutputReady,
                           &OutputState::shortKeysShortKeyOutputReadyIs );
}

void PbrCountersBacklogSm::handleBacklogBacklogOutputInputReady() {
   outputReconciled(
      "backlogBacklogOutput", backlogOutput_, backlog_->backlog(),
      [this]( std::uint64_t k ) { backlog_->backlogDel( k ); },
      [this] { backlogBacklogOutputReconciliationTaskDel(); },
      &OutputState::backlogBacklogOutputReady, &OutputState::backlogBacklogOutputReadyIs );
}

void PbrCountersBacklogSm::handleShortKeysNovelKeyOutputInputReady() {
   outputReconciled(
      "shortKeysNovelKeyOutput", novelKeyOutput_, shortKeys_->novelKey(),
      [this]( std::uint64_t k ) { shortKeys_->novelKeyDel( k ); },
      [this] { shortKeysNovelKeyOutputReconciliationTaskDel(); },
      &OutputState::shortKeysNovelKeyOutputReady, &OutputState::shortKeysNovelKeyOutputReadyIs );
}

template< class Reconciled, class Collection, class Del, class TaskDel >
void PbrCountersBacklogSm::outputReconciled( const char * name, Reconciled & output,
                                             const Collection & collection, Del && del,
                                             TaskDel && taskDel, IsReady isReady,
                                             ReadyIs readyIs ) {
   if ( !initialized() ) { return; }
   const Lumo::Ptr self( this );
   if ( !outputIsDue( name, isReady ) ) { return; }
   detail::FirstException broken;
   if ( output.reconciling() ) {
      auto run = output.deletionScan( collection, synchronous(), del );
      broken = run.broken;
      if ( output.task() ) { output.task()->taskWorkCountInc( run.items ); }
      if ( run.end == detail::DeletionScanEnd::overtaken ) {
         broken.rethrow();
         return;
      }
      if ( run.end == detail::DeletionScanEnd::yielded ) {
         LUMO_TRACE( traceHandle(), 9,
                     "Yielding in reconciliation processing after processing {} items, including "
                     "{} deletions .",
                     run.items, run.deletions );
         if ( output.task() ) { output.task()->scheduleTask(); }
         broken.rethrow();
         return;
      }
      LUMO_TRACE( traceHandle(), 9,
                  "Deletion scan for reconciliation is done, last task run processed {} items, "
                  "deleting {} items.",
                  run.items, run.deletions );
      taskDel();
   }
   output.reconciled();
   outputReadyIs( readyIs );
   broken.rethrow();
}

void PbrCountersBacklogSm::backlogOutputRun( Lumo::Publisher *, Lumo::Subscriber *,
                                             short attributeId, const void *, const void * ) {
   if ( attributeId == Oru::Task::kRun ) { handleBacklogBacklogOutputInputReady(); }
}

void PbrCountersBacklogSm::novelKeyOutputRun( Lumo::Publisher *, Lumo::Subscriber *,
                                              short attributeId, const void *, const void * ) {
   if ( attributeId == Oru::Task::kRun ) { handleShortKeysNovelKeyOutputInputReady(); }
}

Lumo::Ptr< PbrCountersBacklogSm > pbrCountersBacklogSmFactory(
   const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
   const Lumo::Ptr< PbrCountersBacklog > & backlog,
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys, const Ivx::SmControl & control ) {
   auto made = Lumo::makeNode< PbrCountersBacklogSm >( root, backlog, shortKeys, control );
   made->hasNotificationActiveIs( true );
   return made;
}

Lumo::Ptr< PbrCountersBacklogSm >
PbrCountersBacklogSmIs( const Lumo::Ptr< const PolicyMap::Counters::PolicyMapTypeCounters > & root,
                        const Lumo::Ptr< PbrCountersBacklog > & backlog,
                        const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys,
                        const Ivx::SmControl & control ) {
   return pbrCountersBacklogSmFactory( root, backlog, shortKeys, control );
}

} // namespace VeloSdkRpc
