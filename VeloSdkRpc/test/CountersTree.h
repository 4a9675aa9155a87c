#pragma once

#include <map>
#include <string>
#include <utility>

#include "PolicyMap/PolicyMap.h"

namespace VeloSdkRpc::test {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapCounters;
using PolicyMap::Counters::PolicyMapKey;
using PolicyMap::Counters::PolicyMapTypeCounters;

/// The published counters, told what to publish in verbs.
class CountersTree {
 public:
   CountersTree() : root( Lumo::makeNode< PolicyMapTypeCounters >() ) {}

   /// Adds the policy map, empty.
   Lumo::Ptr< PolicyMapCounters > addPolicy( const std::string & policy ) {
      const auto made = Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( policy ) );
      root->policyMapCountersIs( PolicyMapKey( policy ), made );
      return made;
   }
   /// Adds the class, and its policy map if need be.
   Lumo::Ptr< CountersData > addClass( const std::string & policy, const std::string & name,
                                       std::uint64_t packets = 0 ) {
      PolicyMapCounters * map = policyMap( policy );
      if ( !map ) {
         addPolicy( policy );
         map = policyMap( policy );
      }
      const auto made = Lumo::makeNode< CountersData >( Lumo::String( name ) );
      made->countDataIs( CountData( packets, 100 * packets ) );
      map->classCountersIs( name, made );
      return made;
   }
   /// The class is listed, but has no counters.
   void addClassWithoutCounters( const std::string & policy, const std::string & name ) {
      if ( !policyMap( policy ) ) { addPolicy( policy ); }
      policyMap( policy )->classCountersIs( name, nullptr );
   }
   void count( const std::string & policy, const std::string & name, std::uint64_t packets ) {
      policyMap( policy )->classCountersMutable( name )->countDataIs(
         CountData( packets, 100 * packets ) );
   }
   void removeClass( const std::string & policy, const std::string & name ) {
      if ( PolicyMapCounters * map = policyMap( policy ) ) { map->classCountersDel( name ); }
   }
   void removePolicy( const std::string & policy ) {
      root->policyMapCountersDel( PolicyMapKey( policy ) );
   }

   /// Null if there is none.
   PolicyMapCounters * policyMap( const std::string & policy ) const {
      return root->policyMapCountersMutable( PolicyMapKey( policy ) );
   }

   using Name = std::pair< std::string, std::string >;
   /// Packets by policy map and class: what a consumer should know in the end.
   std::map< Name, std::uint64_t > contents() const {
      std::map< Name, std::uint64_t > all;
      for ( const auto & map : root->policyMapCounters() ) {
         if ( !map.value() ) { continue; }
         for ( const auto & entry : map.value()->classCounters() ) {
            if ( !entry.value() ) { continue; }
            all[{ std::string( map.fwkKey().name().view() ),
                  std::string( entry.fwkKey().view() ) }] = entry.value()->countData().packets();
         }
      }
      return all;
   }

   const Lumo::Ptr< PolicyMapTypeCounters > root;
};

} // namespace VeloSdkRpc::test
