#pragma once

#include <map>

#include "Keldb/Mount.h"
#include "Lumo/Export.h"
#include "Lumo/String.h"
#include "Quon/EntitiesByPath.h"

namespace Keldb {

/// The mounted entities of the state database, by path.
///
/// The database keeps for some paths what is mounted there: type and flags. That is what a mount by
/// path alone asks for.
///
/// Thread     event loop only
class VELO_PLATFORM_EXPORT EntityManager final : public Quon::EntitiesByPath {
 public:
   EntityManager();
   ~EntityManager() override;

   /// For the host: a mount of this path by path alone means `mount`, which names a type.
   void pathTypeIs( const Mount & mount );

   /// What a mount of `path` by path alone means; null: the database keeps nothing for that path.
   const Mount * pathType( const Lumo::String & path ) const;

   /// Completes one mount, not by path alone: if it asks for that, an entity that is not there is
   /// made. One that is there stays, whatever its type. Errors: `Quon::EntityTypeException`.
   void mount( const Mount & mount );

 private:
   std::map< Lumo::String, Mount > pathTypes_;
};

} // namespace Keldb
