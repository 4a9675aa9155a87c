#include "agent/TreeWriter.h"

#include <utility>

namespace VeloAgent {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapCounters;
using PolicyMap::Counters::PolicyMapKey;

namespace {

/// A policy map that has more classes than this loses them one by one before it goes itself, for
/// its removal is one notification, and what that does is linear in its classes.
constexpr std::size_t kRemovedAtOnce = 64;

} // namespace

TreeWriter::TreeWriter( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                        const Lumo::Ptr< Root > & root,
                        std::function< void( const std::string & ) > failed )
   : Oru::Task( scheduler, kPriority, "CounterTreeWriter" ),
     root_( root ),
     failed_( std::move( failed ) ) {}

void TreeWriter::apply( CounterChanges changes, std::function< void() > applied ) {
   portions_.push_back( { std::move( changes ), std::move( applied ) } );
   scheduleTask();
}

void TreeWriter::taskRun() {
   while ( left() > 0 ) {
      tryStep();
      if ( !unfinished_ ) { ++next_; }
      taskWorkCountInc( 1 );
      if ( left() > 0 && taskShouldYield() ) {
         taskWorkPendingIs( left() );
         scheduleTask();
         return;
      }
   }
   taskWorkPendingIs( 0 );
   const std::function< void() > applied = std::move( portions_.front().applied );
   portions_.pop_front();
   next_ = 0;
   if ( !portions_.empty() ) { scheduleTask(); }
   applied();
}

/// Exceptions of those who watch the tree arrive here, after the change was made; and a name may be
/// too long for the tree. Neither is a reason to stop the stream.
void TreeWriter::tryStep() {
   unfinished_ = false;
   try {
      std::visit( [this]( const auto & change ) { step( change ); },
                  portions_.front().changes[next_] );
   } catch ( const std::exception & error ) { failed_( error.what() ); }
}

/// What is new is complete before it enters the tree: one notification, and nothing is left undone
/// when that throws.
void TreeWriter::step( const CountersSet & set ) {
   const PolicyMapKey key( set.policy );
   const Lumo::String name( set.className );
   const CountData counters( set.counters.packets, set.counters.bytes );
   const auto newClass = [&] { return Lumo::makeNode< CountersData >( name, counters ); };

   if ( PolicyMapCounters * const policyMap = root_->policyMapCountersMutable( key ) ) {
      if ( CountersData * const present = policyMap->classCountersMutable( name ) ) {
         present->countDataIs( counters );
      } else {
         policyMap->classCountersIs( name, newClass() );
      }
   } else {
      const auto newPolicyMap = Lumo::makeNode< PolicyMapCounters >( key );
      newPolicyMap->classCountersIs( name, newClass() );
      root_->policyMapCountersIs( key, newPolicyMap );
   }
}

void TreeWriter::step( const ClassRemoved & removed ) {
   PolicyMapCounters * const policyMap =
      root_->policyMapCountersMutable( PolicyMapKey( removed.policy ) );
   if ( policyMap ) { policyMap->classCountersDel( removed.className ); }
}

void TreeWriter::step( const PolicyRemoved & removed ) {
   const PolicyMapKey key( removed.policy );
   PolicyMapCounters * const policyMap = root_->policyMapCountersMutable( key );
   if ( policyMap && policyMap->classCounters().size() > kRemovedAtOnce ) {
      unfinished_ = true;
      const Lumo::String first = policyMap->classCounters().begin()->fwkKey();
      policyMap->classCountersDel( first );
   } else {
      root_->policyMapCountersDel( key );
   }
}

} // namespace VeloAgent
