#include "Quon/EntitiesByPath.h"

namespace Quon {

EntitiesByPath::EntitiesByPath() = default;

EntitiesByPath::~EntitiesByPath() = default;

Lumo::Ptr< Entity > EntitiesByPath::getEntity( const Lumo::String & path ) const {
   const auto found = entities_.find( path );
   return found == entities_.end() ? nullptr : found->second;
}

void EntitiesByPath::entityIs( const Lumo::String & path, const Lumo::Ptr< Entity > & entity ) {
   entities_[path] = entity;
}

} // namespace Quon
