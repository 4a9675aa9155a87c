#include "Mpls/RouteKey.h"

#include <ostream>

namespace Mpls {

std::ostream & operator<<( std::ostream & os, const RouteKey & key ) {
   return Quon::printText( os, key );
}

} // namespace Mpls
