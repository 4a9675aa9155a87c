#include "Routing/Fib/FibOverrideViaMatcher.h"

#include <ostream>

#include "Quon/Exceptions.h"
#include "Quon/HashState.h"
#include "Quon/StringAttribute.h"

namespace Routing::Fib {

FibOverrideViaMatcher FibOverrideViaMatcher::ofRoute( const Ipnet::IpPrefix & prefix,
                                                      const Via & via ) {
   FibOverrideViaMatcher matcher;
   matcher.prefixIs( prefix );
   matcher.viaIs( via );
   return matcher;
}

FibOverrideViaMatcher FibOverrideViaMatcher::ofNexthopGroup( const Lumo::String & name,
                                                             const Via & via ) {
   FibOverrideViaMatcher matcher;
   matcher.nexthopGroupIs( name );
   matcher.viaIs( via );
   return matcher;
}

void FibOverrideViaMatcher::vrfIs( const Lumo::String & vrf ) {
   if ( vrf.empty() ) {
      Quon::throwRangeException( "a VRF has a name; that of the default VRF is \"default\"" );
   }
   vrf_ = Quon::checkedString( vrf );
}

void FibOverrideViaMatcher::nexthopGroupIs( const Lumo::String & name ) {
   nexthopGroup_ = Quon::checkedString( name );
}

std::uint64_t FibOverrideViaMatcher::hash( unsigned seed ) const {
   Quon::HashState state( seed );
   state.mix( vrf_ );
   state.mix( prefix_ );
   state.mix( nexthopGroup_ );
   state.mix( via_ );
   return state.result();
}

std::ostream & operator<<( std::ostream & os, const FibOverrideViaMatcher & matcher ) {
   return Quon::printText( os, matcher );
}

} // namespace Routing::Fib
