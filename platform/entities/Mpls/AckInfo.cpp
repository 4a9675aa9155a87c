#include "Mpls/AckInfo.h"

#include <ostream>

namespace Mpls::Hardware {

std::ostream & operator<<( std::ostream & os, const AckInfo & ackInfo ) {
   return Quon::printText( os, ackInfo );
}

} // namespace Mpls::Hardware
