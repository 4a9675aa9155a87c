#include "VeloSdkRpc/detail/PbrCountersBacklogTask.h"

namespace VeloSdkRpc {
PbrCountersBacklogTask::PbrCountersBacklogTask( const Lumo::String & name,
                                                const Lumo::Ptr< PbrCountersBacklog > & backlog )
   : backlog_( backlog ) {
   Lumo::subscriptionIs( backlog_->publisher(), onBacklog_, true );
   taskIs( Oru::TaskSchedulerRoot::findOrCreateScheduler(), kTaskPriority, name );
   task_->scheduleTask();
}

PbrCountersBacklogTask::~PbrCountersBacklogTask() { hasNotificationActiveIs( false ); }

const Quon::TypeData & PbrCountersBacklogTask::typeData() const {
   static constexpr std::string_view kAttributes[] = { "task", "pbrCountersBacklogPtr",
                                                       "initialized" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::PbrCountersBacklogTask", kAttributes };
   return kType;
}

Lumo::Ptr< Oru::Task >
PbrCountersBacklogTask::taskIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                                Oru::TaskPriority priority, const Lumo::String & name ) {
   if ( task_ ) {
      task_->taskPriorityIs( priority );
      if ( task_->taskScheduler() == scheduler && task_->taskName() == name ) { return task_; }
   }
   const Lumo::Ptr< Oru::Task > old = taskDel(); // The arguments may be its own.
   task_ = Lumo::makeNode< Oru::Task >( scheduler, priority, name );
   Lumo::subscriptionIs( task_->publisher(), onRun_, true );
   const Lumo::Ptr< Oru::Task > made = task_;
   onTask();
   return made;
}

Lumo::Ptr< Oru::Task > PbrCountersBacklogTask::taskDel() {
   if ( task_ ) { Lumo::subscriptionIs( task_->publisher(), onRun_, false ); }
   return std::exchange( task_, nullptr );
}

void PbrCountersBacklogTask::onTask() {
   if ( initialized() ) { backlog_->process( task_ ); }
}

void PbrCountersBacklogTask::hasNotificationActiveIs( bool active ) {
   if ( active == hasNotificationActive() ) { return; }
   nodeFlagSet( Flag::hasNotificationActive, active );
   if ( task_ ) { Lumo::subscriptionIs( task_->publisher(), onRun_, active ); }
   Lumo::subscriptionIs( backlog_->publisher(), onBacklog_, active );
}

void PbrCountersBacklogTask::taskDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                                           const void *, const void * ) {
   if ( attributeId == Oru::Task::kRun ) { onTask(); }
}

void PbrCountersBacklogTask::pbrCountersBacklogPtrDispatch( Lumo::Publisher *, Lumo::Subscriber *,
                                                            short attributeId, const void *,
                                                            const void * ) {
   if ( attributeId == PbrCountersBacklog::kBacklog && task_ ) { task_->scheduleTask(); }
}

Lumo::Ptr< PbrCountersBacklogTask >
pbrCountersBacklogTaskFactory( const Lumo::String & name,
                               const Lumo::Ptr< PbrCountersBacklog > & backlog ) {
   auto made = Lumo::makeNode< PbrCountersBacklogTask >( name, backlog );
   made->hasNotificationActiveIs( true );
   made->handleInitialized();
   return made;
}

Lumo::Ptr< PbrCountersBacklogTask >
PbrCountersBacklogTaskIs( const Lumo::String & name,
                          const Lumo::Ptr< PbrCountersBacklog > & backlog ) {
   return pbrCountersBacklogTaskFactory( name, backlog );
}

} // namespace VeloSdkRpc
