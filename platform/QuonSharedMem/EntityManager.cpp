#include "QuonSharedMem/EntityManager.h"

#include "Lumo/Assert.h"

namespace QuonSharedMem {

EntityManager::EntityManager() = default;

EntityManager::~EntityManager() = default;

void EntityManager::assertSafeToAccess( const Lumo::Ptr< Quon::Entity > & entity,
                                        const Lumo::String & path ) const {
   LUMO_FMASSERT( !entity || !beingWritten_.contains( path ),
                  "the entity at {} is being written and must not be read now", path );
}

void EntityManager::beingWrittenIs( const Lumo::String & path, bool beingWritten ) {
   if ( beingWritten ) {
      beingWritten_.insert( path );
   } else {
      beingWritten_.erase( path );
   }
}

} // namespace QuonSharedMem
