#include "agent/metrics/LoopCollectable.h"

#include "agent/metrics/MetricFamilies.h"

namespace VeloAgent {

LoopCollectable::Families LoopCollectable::Collect() const {
   const auto asked = std::make_shared< Answer >();
   loop_.post( [asked, self = weak_from_this()] {
      if ( const auto alive = self.lock() ) { alive->answer( *asked ); }
   } );
   std::unique_lock lock( mutex_ );
   changed_.wait_for( lock, patience_, [&] { return asked->there || closed_; } );
   const bool answering = asked->there;
   Families families = std::move( asked->families );
   families.push_back( loopAnsweringFamily( answering ) );
   return families;
}

void LoopCollectable::answer( Answer & to ) const {
   {
      const std::lock_guard lock( mutex_ );
      if ( closed_ ) { return; }
   }
   Families families = collect_();
   const std::lock_guard lock( mutex_ );
   to.families = std::move( families );
   to.there = true;
   changed_.notify_all();
}

void LoopCollectable::close() {
   const std::lock_guard lock( mutex_ );
   closed_ = true;
   changed_.notify_all();
}

} // namespace VeloAgent
