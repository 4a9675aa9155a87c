#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "Oru/FakeClock.h"
#include "Oru/Oru.h"

namespace Oru {

/// Somebody with work: owns a task and does `work` in each of its runs.
class Worker final : public Lumo::Node {
 public:
   using Work = std::function< void( Worker & ) >;

   Worker( const Lumo::Ptr< TaskScheduler > & scheduler, TaskPriority priority,
           const Lumo::String & name, Work work )
      : task( Lumo::makeNode< Task >( scheduler, priority, name ) ), work_( std::move( work ) ) {
      task->publisher()->subscriberAdd( slot_ );
   }

   Lumo::Ptr< Task > task;

 private:
   void onChange( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void *,
                  const void * ) {
      if ( attributeId == Task::kRun ) { work_( *this ); }
   }

   Work work_;
   Lumo::MemberSubscriber< Worker, &Worker::onChange > slot_{ this };
};

/// A scheduler with a fake clock, and a log of who ran.
class SchedulerFixture : public testing::Test {
 protected:
   using Log = std::vector< std::string >;

   SchedulerFixture() { slices< YieldsAfter >( 0 ); }

   template< class Policy, class... Args >
   void slices( Args &&... args ) {
      scheduler->slicePolicyIs( std::make_unique< Policy >( std::forward< Args >( args )... ) );
   }

   /// A worker that logs its runs and then does `work`.
   Lumo::Ptr< Worker > worker( const char * name, TaskPriority priority = 0,
                               Worker::Work work = {} ) {
      return Lumo::makeNode< Worker >( scheduler, priority, name,
                                       [this, name, work = std::move( work )]( Worker & self ) {
                                          log.push_back( name );
                                          if ( work ) { work( self ); }
                                       } );
   }

   template< class... Workers >
   void schedule( const Workers &... workers ) {
      ( workers->task->scheduleTask(), ... );
   }

   /// Asks until told to yield, at most `limit` times; returns how many asks went on.
   static int asksThatGoOn( Worker & worker, int limit = 100 ) {
      int asks = 0;
      while ( asks < limit && !worker.task->taskShouldYield() ) { ++asks; }
      return asks;
   }

   Lumo::Ptr< TaskScheduler > scheduler = Lumo::makeNode< TaskScheduler >();
   FakeClock clock;
   Log log;
};

} // namespace Oru
