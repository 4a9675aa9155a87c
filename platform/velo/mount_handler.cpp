#include "velo/mount_handler.h"

#include "velo/mount_mgr.h"

namespace velo {

mount_handler::mount_handler( mount_mgr * mgr, const Lumo::String & mountPointName )
   : mountPointName_( mountPointName ) {
   if ( mgr ) { mgr->registerHandler( *this ); }
}

mount_handler::~mount_handler() = default;

} // namespace velo
