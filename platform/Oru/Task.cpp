#include "Oru/Task.h"

#include "Lumo/Assert.h"
#include "Lumo/Thread.h"

namespace Oru {

Task::Task( const Lumo::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
            const Lumo::String & name )
   : scheduler_( scheduler ), name_( name ), priority_( priority ) {
   if ( scheduler_ ) { place_.linkBefore( scheduler_->tasks_ ); }
}

Task::~Task() {
   if ( linked() ) {
      Lumo::Impl::checkEventLoopThread();
      scheduler_->waitingDel( *this );
   }
}

void Task::scheduleTask() {
   Lumo::Impl::checkEventLoopThread();
   LUMO_ASSERT( scheduler_ && "a task without a scheduler is run by its owner" );
   if ( !linked() ) { scheduler_->waitingIs( *this ); }
}

void Task::taskWorkPendingIs( std::size_t items ) {
   workPending_ = items;
   if ( scheduler_ ) { scheduler_->workReported(); }
}

void Task::taskPriorityIs( TaskPriority priority ) {
   Lumo::Impl::checkEventLoopThread();
   if ( priority == priority_ ) { return; }
   priority_ = priority;
   if ( linked() ) { scheduler_->priorityChanged( *this ); }
}

void Task::taskRun() { publisher_.publishChange( kRun ); }

} // namespace Oru
