#pragma once

#include <functional>
#include <utility>

#include "VeloSdkRpc/test/Machines.h"

namespace VeloSdkRpc::test {

/// A test of the backlog machine, with a view of the records that it files.
class BacklogMachineTest : public MachineTest< BacklogMachine > {
 protected:
   /// The pending record of `key`; a default one if there is none.
   PbrCounters record( std::uint64_t key ) const {
      const auto * entry = backlog->backlog()[key];
      return entry ? entry->value() : PbrCounters();
   }

   /// The machine of a class, or null.
   Lumo::Ptr< IlexCode::PbrCountersBacklogSm::ClassCountersSm2 >
   classMachine( const std::string & policy, const std::string & name ) const {
      return child( policy )->childSmClassCountersPolicyMapCountersCountersDataPtrConst( name );
   }

   /// How many records were filed for `key`, equal ones included.
   static std::size_t filings( const Lumo::CapturingTraceSink & traces, std::uint64_t key ) {
      std::size_t found = 0;
      for ( const std::string & text : textsAt( traces, 7 ) ) {
         found += text.starts_with(
            "into( backlog.backlog[ key ] ): inserting k1=" + std::to_string( key ) + "," );
      }
      return found;
   }

   /// What must hold when everything is quiet: one live record or table entry per class.
   void expectInStepWithTheTree() const {
      std::map< CountersTree::Name, std::uint64_t > packets;
      for ( const auto & [name, key] : known() ) {
         const auto * entry = backlog->backlog()[key];
         ASSERT_TRUE( entry ) << name.first << "/" << name.second;
         EXPECT_FALSE( entry->value().deletedKey() );
         packets[name] = entry->value().data()->countData().packets();
      }
      EXPECT_EQ( packets, tree.contents() );
   }

   /// Calls `act( key, record )` for every change of the backlog, with null when a record went.
   Lumo::Ptr< ActsOnChange >
   onBacklog( std::function< void( std::uint64_t, const PbrCounters * ) > act ) {
      return Lumo::makeNode< ActsOnChange >(
         backlog->publisher(),
         [act = std::move( act )]( short id, const void * key, const void * value ) {
            if ( id == PbrCountersBacklog::kBacklog ) {
               act( *static_cast< const std::uint64_t * >( key ),
                    static_cast< const PbrCounters * >( value ) );
            }
         } );
   }
};

} // namespace VeloSdkRpc::test
