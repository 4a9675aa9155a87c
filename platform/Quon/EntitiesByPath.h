#pragma once

#include <map>

#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "Quon/Entity.h"

namespace Quon {

/// Returns `name` if it can be one step of a path: it has one character at least, and no slash.
/// Else raises the range error.
VELO_PLATFORM_EXPORT const Lumo::String & checkedPathStep( const Lumo::String & name );

/// Mounted entities by path: what the entity managers of all kinds of mounts have in common. The
/// host puts the entities there. A path may go on into directories: "routing/sdk/weights" is what
/// was put there or, failing that, the entity called weights in the directory at "routing/sdk".
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT EntitiesByPath : public Lumo::Node {
 public:
   ~EntitiesByPath() override;

   /// The entity at `path`, or null. O(steps of the path) look-ups.
   Lumo::Ptr< Entity > getEntity( const Lumo::String & path ) const;

   /// For the host: `entity` is what is at `path` from now on; null: nothing is.
   void entityIs( const Lumo::String & path, const Lumo::Ptr< Entity > & entity );

 protected:
   EntitiesByPath();

 private:
   std::map< Lumo::String, Lumo::Ptr< Entity > > entities_;
};

} // namespace Quon
