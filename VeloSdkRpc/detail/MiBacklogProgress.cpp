#include "VeloSdkRpc/detail/MiBacklogProgress.h"

#include <ostream>

namespace QuonLumo {

std::ostream & operator<<( std::ostream & os, const MiBacklogProgress & progress ) {
   return Quon::printText( os, progress );
}

} // namespace QuonLumo
