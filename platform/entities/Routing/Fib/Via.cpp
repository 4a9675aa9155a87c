#include "Routing/Fib/Via.h"

#include <ostream>

#include "Quon/HashState.h"

namespace Routing::Fib {

std::uint64_t Via::hash( unsigned seed ) const {
   Quon::HashState state( seed );
   state.mix( nexthop_ );
   state.mix( intf_ );
   state.mix( labelStack_ );
   return state.result();
}

std::ostream & operator<<( std::ostream & os, const Via & via ) {
   return Quon::printText( os, via );
}

} // namespace Routing::Fib
