#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {

/// What is to be told, parked and dropped, written down one rule after the other, with plain
/// containers, for clients that do nothing.
class NaiveMplsRules {
 public:
   void put( const Route & route ) {
      const std::uint32_t label = route.key().label();
      const auto before = routes.find( label );
      if ( before == routes.end() ) {
         routes[label] = route;
         judge( label );
         return;
      }
      const Route previous = before->second;
      before->second = route;
      if ( !( previous == route ) ) { changed( label, previous, route ); }
   }
   void touch( std::uint32_t label ) {
      if ( routes.contains( label ) ) { changed( label, routes[label], routes[label] ); }
   }
   void remove( std::uint32_t label ) {
      if ( routes.erase( label ) != 0 ) { judge( label ); }
   }
   void name( MplsState::Group group, const std::string & name ) {
      const auto before = names.find( group );
      if ( before != names.end() && before->second == name ) { return; }
      names[group] = name;
      groupChanged( group );
   }
   void unname( MplsState::Group group ) {
      if ( names.erase( group ) != 0 ) { groupChanged( group ); }
   }

   std::map< std::uint32_t, Route > routes;
   std::map< MplsState::Group, std::string > names;
   std::map< MplsState::Group, std::set< std::uint32_t > > parked;
   std::vector< Route > told;

 private:
   bool named( MplsState::Group group ) const {
      const auto at = names.find( group );
      return at != names.end() && !at->second.empty();
   }
   static AckInfo ack( const Route & route ) {
      return route.ackInfo() ? route.ackInfo().value() : AckInfo();
   }

   void changed( std::uint32_t label, const Route & previous, const Route & current ) {
      const AckInfo a = ack( previous ), b = ack( current );
      if ( a.routeVersion() != b.routeVersion() ) { return judge( label ); }
      if ( a.fecId() != b.fecId() ) { return judge( label ); }
      if ( a.nexthopGroupVersion() != b.nexthopGroupVersion() ) { return judge( label ); }
      if ( a.ack() == b.ack() && previous.programmingState() == current.programmingState() ) {
         return;
      }
      judge( label );
   }

   void judge( std::uint32_t label ) {
      const auto at = routes.find( label );
      if ( at == routes.end() ) { return; }
      const AckInfo info = ack( at->second );
      if ( info.routeVersion() == 0 || at->second.programmingState() != 0 ) { return; }
      if ( info.fecId().value() >> 56 != 3 || info.nexthopGroupVersion() == 0 ) { return; }
      const auto group = static_cast< MplsState::Group >( info.fecId().value() );
      if ( named( group ) ) {
         told.push_back( at->second );
      } else {
         parked[group].insert( label );
      }
   }

   void groupChanged( MplsState::Group group ) {
      if ( named( group ) ) {
         for ( const std::uint32_t label : parked[group] ) { judge( label ); }
      }
      parked.erase( group );
   }
};

} // namespace VeloSdkRpc::test
