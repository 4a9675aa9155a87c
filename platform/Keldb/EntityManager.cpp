#include "Keldb/EntityManager.h"

#include "Lumo/Assert.h"
#include "Quon/EntityTypes.h"

namespace Keldb {

EntityManager::EntityManager() = default;

EntityManager::~EntityManager() = default;

void EntityManager::pathTypeIs( const Mount & mount ) {
   LUMO_ASSERT( !mount.entityType().empty() );
   pathTypes_.insert_or_assign( mount.path(), mount );
}

const Mount * EntityManager::pathType( const Lumo::String & path ) const {
   const auto found = pathTypes_.find( path );
   return found == pathTypes_.end() ? nullptr : &found->second;
}

void EntityManager::mount( const Mount & mount ) {
   if ( !mount.flags().has( MountFlag::initialize ) || getEntity( mount.path() ) ) { return; }
   entityIs( mount.path(), Quon::createEntity( mount.entityType() ) );
}

} // namespace Keldb
