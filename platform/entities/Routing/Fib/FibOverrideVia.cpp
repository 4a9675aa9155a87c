#include "Routing/Fib/FibOverrideVia.h"

#include <ostream>

#include "Quon/HashState.h"

namespace Routing::Fib {

std::uint64_t FibOverrideVia::hash( unsigned seed ) const {
   Quon::HashState state( seed );
   state.mix( matcher_ );
   state.mix( weight_ );
   state.mix( replacement_ );
   return state.result();
}

std::ostream & operator<<( std::ostream & os, const FibOverrideVia & via ) {
   return Quon::printText( os, via );
}

} // namespace Routing::Fib
