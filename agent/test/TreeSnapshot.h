/// The mounted tree as plain values, to be compared.

#pragma once

#include "agent/CounterSnapshot.h"
#include "agent/TreeWriter.h"

namespace VeloAgent {

/// Policy maps without a class are in it too.
inline CounterSnapshot snapshotOf( const TreeWriter::Root & root ) {
   CounterSnapshot found;
   for ( const auto & policyMap : root.policyMapCounters() ) {
      ClassCounters & classes = found[std::string( policyMap.fwkKey().name().view() )];
      for ( const auto & entry : policyMap.value()->classCounters() ) {
         const auto & data = entry.value()->countData();
         classes[std::string( entry.fwkKey().view() )] = { data.packets(), data.bytes() };
      }
   }
   return found;
}

} // namespace VeloAgent
