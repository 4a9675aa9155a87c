#include "Mpls/Route.h"

#include <ostream>

namespace Mpls::Hardware {

std::ostream & operator<<( std::ostream & os, const Route & route ) {
   return Quon::printText( os, route );
}

} // namespace Mpls::Hardware
