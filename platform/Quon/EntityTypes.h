#pragma once

#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/Ptr.h"
#include "Quon/Entity.h"

/// The entity types that can be made by name, for whoever is told a type at run time: directories,
/// mounts.
///
/// A type makes itself known in its source file:
///
///    const Quon::EntityTypeRegistration< BgpLinkWeightSdkOverride > registered;
///
/// Thread     event loop only; registrations also while the program or a library is being loaded
namespace Quon {

/// Whether `createEntity` knows `typeName`.
VELO_PLATFORM_EXPORT bool entityTypeExists( std::string_view typeName );

/// A new entity of that type. Errors: `EntityTypeException` for a name that no type has.
VELO_PLATFORM_EXPORT Lumo::Ptr< Entity > createEntity( std::string_view typeName );

namespace Impl {

using EntityFactory = Lumo::Ptr< Entity > ( * )();

/// Fatal if there is a type of that name already. `typeName` must outlive the registration.
VELO_PLATFORM_EXPORT void entityTypeIs( std::string_view typeName, EntityFactory factory );
VELO_PLATFORM_EXPORT void entityTypeDel( std::string_view typeName );

} // namespace Impl

/// While it lives, `E` can be made by its name. `E` has a default constructor and `kTypeName`, the
/// name that its `typeData()` tells too.
template< class E >
class EntityTypeRegistration {
 public:
   EntityTypeRegistration() {
      Impl::entityTypeIs( E::kTypeName,
                          []() -> Lumo::Ptr< Entity > { return Lumo::makeNode< E >(); } );
   }
   ~EntityTypeRegistration() { Impl::entityTypeDel( E::kTypeName ); }
   EntityTypeRegistration( const EntityTypeRegistration & ) = delete;
   EntityTypeRegistration & operator=( const EntityTypeRegistration & ) = delete;
};

} // namespace Quon
