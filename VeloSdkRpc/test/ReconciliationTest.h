#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "VeloSdkRpc/test/BacklogMachineTest.h"

namespace VeloSdkRpc::test {

inline constexpr const char * kBacklogTask = "PbrCountersBacklogSm-backlogBacklogOutputTask";
inline constexpr const char * kNovelTask = "PbrCountersBacklogSm-shortKeysNovelKeyOutputTask";

/// The texts of the deletion scan.
inline std::string yielded( int items, int deletions ) {
   return "Yielding in reconciliation processing after processing " + std::to_string( items ) +
          " items, including " + std::to_string( deletions ) + " deletions .";
}
inline std::string done( int items, int deletions ) {
   return "Deletion scan for reconciliation is done, last task run processed " +
          std::to_string( items ) + " items, deleting " + std::to_string( deletions ) + " items.";
}

/// A test of the backlog machine over what a previous life left behind.
class ReconciliationTest : public BacklogMachineTest {
 protected:
   /// A record of a previous life, whose long key the table still has.
   void leaveRecord( std::uint64_t key ) {
      const PbrCountersKey name = longKey( "p", std::to_string( key ) );
      table->shortKeyIs( name, key );
      table->nextKeyIs( std::max( table->nextKey(), key ) );
      backlog->backlogIs( PbrCounters( key, name, nullptr, false ) );
   }
   void leaveRecords( std::uint64_t first, std::uint64_t last ) {
      for ( std::uint64_t key = first; key <= last; ++key ) { leaveRecord( key ); }
   }
   void leaveNovelKeys( std::uint64_t first, std::uint64_t last ) {
      for ( std::uint64_t key = first; key <= last; ++key ) { table->novelKeyIs( key ); }
      table->nextKeyIs( std::max( table->nextKey(), last ) );
   }

   /// All short keys in the backlog's own order.
   std::vector< std::uint64_t > records() const {
      std::vector< std::uint64_t > all;
      for ( const auto & entry : backlog->backlog() ) { all.push_back( entry.fwkKey() ); }
      return all;
   }
   std::vector< std::uint64_t > novelKeys() const {
      std::vector< std::uint64_t > all;
      for ( const auto & entry : table->novelKey() ) { all.push_back( entry.fwkKey() ); }
      return all;
   }
   const Lumo::Ptr< Oru::Task > & backlogTask() const {
      return sm->backlogBacklogOutputReconciliationTask();
   }
   const Lumo::Ptr< Oru::Task > & novelTask() const {
      return sm->shortKeysNovelKeyOutputReconciliationTask();
   }

   /// Scans all in one slice; what is to be reconciled has been called from outside its task once.
   void startAndScan() {
      loop.endlessSlices();
      start( kAsynchronous );
      loop.runOne();
      ASSERT_FALSE( root().task0() );
   }
};

} // namespace VeloSdkRpc::test
