#include "agent/CounterChanges.h"

namespace VeloAgent {

namespace {

/// Walks two ordered maps side by side: `gone( key )` for what only `before` has,
/// `kept( key, old, now )` for the rest, `old` being null for what is new.
template< typename Map, typename Gone, typename Kept >
void walkBoth( const Map & before, const Map & after, Gone gone, Kept kept ) {
   auto old = before.begin();
   auto now = after.begin();
   while ( old != before.end() || now != after.end() ) {
      if ( now == after.end() || ( old != before.end() && old->first < now->first ) ) {
         gone( old->first );
         ++old;
      } else if ( old == before.end() || now->first < old->first ) {
         kept( now->first, nullptr, now->second );
         ++now;
      } else {
         kept( now->first, &old->second, now->second );
         ++old;
         ++now;
      }
   }
}

} // namespace

CounterChanges changesBetween( const CounterSnapshot & before, const CounterSnapshot & after ) {
   CounterChanges changes;
   const ClassCounters none;

   auto policyKept = [&]( const std::string & policy, const ClassCounters * old,
                          const ClassCounters & now ) {
      walkBoth(
         old ? *old : none, now,
         [&]( const std::string & name ) { changes.push_back( ClassRemoved{ policy, name } ); },
         [&]( const std::string & name, const Counters * was, const Counters & is ) {
            if ( !was || *was != is ) { changes.push_back( CountersSet{ policy, name, is } ); }
         } );
   };
   walkBoth(
      before, after,
      [&]( const std::string & policy ) { changes.push_back( PolicyRemoved{ policy } ); },
      policyKept );
   return changes;
}

} // namespace VeloAgent
