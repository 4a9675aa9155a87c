/// What a tree looks like after changes, told by the plainest means there are.

#pragma once

#include "agent/CounterChanges.h"

namespace VeloAgent {

/// Policy maps that lost their last class stay, as they do in the tree.
class AppliedChanges {
 public:
   explicit AppliedChanges( CounterSnapshot before = {} ) : now_( std::move( before ) ) {}

   void operator()( const CountersSet & set ) { now_[set.policy][set.className] = set.counters; }
   void operator()( const ClassRemoved & removed ) {
      const auto policy = now_.find( removed.policy );
      if ( policy != now_.end() ) { policy->second.erase( removed.className ); }
   }
   void operator()( const PolicyRemoved & removed ) { now_.erase( removed.policy ); }

   void apply( const CounterChange & change ) { std::visit( *this, change ); }
   void apply( const CounterChanges & changes ) {
      for ( const CounterChange & change : changes ) { apply( change ); }
   }
   const CounterSnapshot & now() const { return now_; }

 private:
   CounterSnapshot now_;
};

inline CounterSnapshot applied( const CounterChanges & changes, CounterSnapshot before = {} ) {
   AppliedChanges result( std::move( before ) );
   result.apply( changes );
   return result.now();
}

} // namespace VeloAgent
