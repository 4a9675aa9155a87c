/// The task scheduler that everybody in the process finds, for as long as this lives.
///
/// Owner      whoever runs the event loop; one at a time

#pragma once

#include "Oru/Oru.h"

namespace VeloAgent {

class ProcessScheduler {
 public:
   ProcessScheduler() : scheduler_( Lumo::makeNode< Oru::TaskScheduler >() ) {
      Oru::TaskSchedulerRoot::schedulerIs( scheduler_ );
   }
   ~ProcessScheduler() { Oru::TaskSchedulerRoot::schedulerIs( nullptr ); }
   ProcessScheduler( const ProcessScheduler & ) = delete;
   ProcessScheduler & operator=( const ProcessScheduler & ) = delete;

   const Lumo::Ptr< Oru::TaskScheduler > & operator*() const { return scheduler_; }

 private:
   Lumo::Ptr< Oru::TaskScheduler > scheduler_;
};

} // namespace VeloAgent
