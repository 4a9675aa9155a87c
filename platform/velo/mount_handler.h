#pragma once

#include "Keldb/Keldb.h"
#include "Lumo/Export.h"
#include "Lumo/Link.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "QuonSharedMem/QuonSharedMem.h"

namespace velo {

class mount_mgr;

/// Something that needs mounts: registers itself with a mount manager when it is made and is called
/// by it twice, first to ask for its mounts, then when all of them are available. Its own
/// operations are used only after that.
///
/// Owner      whoever made it; handler and manager may go in either order, at any time
/// Thread     event loop only
class VELO_PLATFORM_EXPORT mount_handler : private Lumo::Link {
 public:
   /// Registers with `mgr`, under a name that is empty or not taken; a second handler of one name
   /// raises `mount_protocol_error`, as does a manager that has mounted already. With a null `mgr`
   /// the handler is never called.
   explicit mount_handler( mount_mgr * mgr, const Lumo::String & mountPointName = {} );
   virtual ~mount_handler();

   mount_handler( const mount_handler & ) = delete;
   mount_handler & operator=( const mount_handler & ) = delete;

   /// Asks the groups for this handler's mounts. Called once.
   virtual void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                          const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) = 0;

   /// All that any handler asked for is mounted; what is missing is null. Called once.
   virtual void
   onMountsComplete( const Lumo::Ptr< Keldb::EntityManager > & entities,
                     const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) = 0;

   /// The name under which it was registered.
   const Lumo::String & get_mount_point_name() const { return mountPointName_; }

 private:
   friend class mount_mgr;

   /// How far the protocol has come with this handler.
   enum class Stage : unsigned char { registered, collected, complete };

   const Lumo::String mountPointName_;
   Stage stage_ = Stage::registered;
};

} // namespace velo
