#include "Quon/EntitiesByPath.h"

#include <fmt/format.h>

#include "Quon/Dir.h"
#include "Quon/Exceptions.h"

namespace Quon {

const Lumo::String & checkedPathStep( const Lumo::String & name ) {
   if ( name.empty() || name.view().find( '/' ) != std::string_view::npos ) {
      throwRangeException( fmt::format( "{:?} cannot be one step of a path: it must have one "
                                        "character at least, and no slash",
                                        name.view() ) );
   }
   return name;
}

EntitiesByPath::EntitiesByPath() = default;

EntitiesByPath::~EntitiesByPath() = default;

Lumo::Ptr< Entity > EntitiesByPath::getEntity( const Lumo::String & path ) const {
   const auto found = entities_.find( path );
   if ( found != entities_.end() ) { return found->second; }
   const std::size_t slash = path.view().rfind( '/' );
   if ( slash == std::string_view::npos ) { return nullptr; }
   const auto directory = entityCast< Dir >( getEntity( path.view().substr( 0, slash ) ) );
   return directory
             ? Lumo::Ptr< Entity >( directory->entityMutable( path.view().substr( slash + 1 ) ) )
             : nullptr;
}

void EntitiesByPath::entityIs( const Lumo::String & path, const Lumo::Ptr< Entity > & entity ) {
   entities_[path] = entity;
}

} // namespace Quon
