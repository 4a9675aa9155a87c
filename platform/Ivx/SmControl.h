#pragma once

#include <cstdint>

#include "Lumo/Export.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "Oru/Oru.h"
#include "Zaptrace/Zaptrace.h"

namespace Ivx {

/// How a state machine is to run. A plain value; the machine keeps a copy.
class VELO_PLATFORM_EXPORT SmControl {
 public:
   /// The synchronous choices that mean something; any other byte leaves the machine's default.
   static constexpr std::uint8_t kSynchronous = 1;
   static constexpr std::uint8_t kAsynchronous = 2;

   SmControl();
   SmControl( Lumo::Ptr< Oru::TaskScheduler > scheduler, Oru::TaskPriority priority,
              Lumo::String traceHandleName, std::uint8_t synchronousChoice );

   /// Null: the process-wide scheduler, if the machine needs one.
   const Lumo::Ptr< Oru::TaskScheduler > & scheduler() const { return scheduler_; }
   void schedulerIs( Lumo::Ptr< Oru::TaskScheduler > scheduler ) {
      scheduler_ = std::move( scheduler );
   }

   Oru::TaskPriority priority() const { return priority_; }
   void priorityIs( Oru::TaskPriority priority ) { priority_ = priority; }

   /// Empty: the default handle.
   const Lumo::String & traceHandleName() const { return traceHandleName_; }
   void traceHandleNameIs( Lumo::String name ) { traceHandleName_ = std::move( name ); }

   std::uint8_t synchronousChoice() const { return synchronousChoice_; }
   void synchronousChoiceIs( std::uint8_t choice ) { synchronousChoice_ = choice; }

   /// What the machine's `synchronous` becomes when it was `current` so far.
   bool synchronous( bool current ) const {
      return synchronousChoice_ == kSynchronous ||
             ( synchronousChoice_ != kAsynchronous && current );
   }

   /// The handle to trace through, in place of the one that the name stands for. Null: by name.
   void qtHandleIs( Zaptrace::TraceHandle * handle );

   /// The handle that a machine with this control traces through.
   Lumo::Ptr< Zaptrace::TraceHandle > traceHandle() const;

 private:
   Lumo::Ptr< Oru::TaskScheduler > scheduler_;
   Oru::TaskPriority priority_ = 0;
   std::uint8_t synchronousChoice_ = 0;
   Lumo::String traceHandleName_;
   Lumo::Ptr< Zaptrace::TraceHandle > qtHandle_;
};

} // namespace Ivx
