#pragma once

#include "VeloSdkRpc/PbrCountersBacklog.h"

namespace VeloSdkRpc {

/// Binds a backlog to a task of the scheduler: every change of the backlog asks for a run, every
/// run drains a slice.
///
/// Owner      the manager
/// Thread     event loop only
/// Re-entry   the task may be replaced or removed, and this object dropped, from inside a run
class VELO_SDK_RPC_EXPORT PbrCountersBacklogTask final : public Quon::Entity {
 public:
   /// Scans and reconciliation (priority 0) go before draining.
   static constexpr Oru::TaskPriority kTaskPriority = 3;

   /// Subscribes to `backlog`, makes the task on the process-wide scheduler and asks for a run.
   PbrCountersBacklogTask( const Lumo::String & name,
                           const Lumo::Ptr< PbrCountersBacklog > & backlog );
   ~PbrCountersBacklogTask() override;

   const Quon::TypeData & typeData() const override;

   const Lumo::Ptr< Oru::Task > & task() const { return task_; }
   const Lumo::Ptr< PbrCountersBacklog > & pbrCountersBacklogPtr() const { return backlog_; }

   /// Until then runs do nothing.
   bool initialized() const { return nodeFlag( Flag::initialized ); }
   void handleInitialized() { nodeFlagSet( Flag::initialized, true ); }

   /// The task with these properties. A present one is kept, with its priority changed, if its
   /// scheduler and name are the same; otherwise it is replaced and `onTask` is called at once.
   Lumo::Ptr< Oru::Task > taskIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                                  Oru::TaskPriority priority, const Lumo::String & name );

   /// Removes the task and returns it; null if there was none.
   Lumo::Ptr< Oru::Task > taskDel();

   /// Drains a slice, once initialized.
   void onTask();

   bool hasNotificationActive() const { return nodeFlag( Flag::hasNotificationActive ); }
   /// Subscribes or unsubscribes both handlers.
   void hasNotificationActiveIs( bool active );

 private:
   void taskDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void *,
                      const void * );
   void pbrCountersBacklogPtrDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                                       const void *, const void * );

   Lumo::Ptr< Oru::Task > task_;
   const Lumo::Ptr< PbrCountersBacklog > backlog_;
   Lumo::MemberSubscriber< PbrCountersBacklogTask, &PbrCountersBacklogTask::taskDispatch > onRun_{
      this };
   Lumo::MemberSubscriber< PbrCountersBacklogTask,
                           &PbrCountersBacklogTask::pbrCountersBacklogPtrDispatch >
      onBacklog_{ this };
};

/// Both make the task object, turn its notifications on and initialize it.
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklogTask >
pbrCountersBacklogTaskFactory( const Lumo::String & name,
                               const Lumo::Ptr< PbrCountersBacklog > & backlog );
VELO_SDK_RPC_EXPORT Lumo::Ptr< PbrCountersBacklogTask >
PbrCountersBacklogTaskIs( const Lumo::String & name,
                          const Lumo::Ptr< PbrCountersBacklog > & backlog );

} // namespace VeloSdkRpc
