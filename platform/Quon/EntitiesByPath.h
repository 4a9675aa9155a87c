#pragma once

#include <map>

#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "Quon/Entity.h"

namespace Quon {

/// Mounted entities by path: what the entity managers of all kinds of mounts have in common. The
/// host puts the entities there.
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT EntitiesByPath : public Lumo::Node {
 public:
   ~EntitiesByPath() override;

   /// The entity at `path`, or null.
   Lumo::Ptr< Entity > getEntity( const Lumo::String & path ) const;

   /// For the host: `entity` is what is at `path` from now on; null: nothing is.
   void entityIs( const Lumo::String & path, const Lumo::Ptr< Entity > & entity );

 protected:
   EntitiesByPath();

 private:
   std::map< Lumo::String, Lumo::Ptr< Entity > > entities_;
};

} // namespace Quon
