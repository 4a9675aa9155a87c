#include "agent/MountList.h"

namespace VeloAgent {

namespace {

MountReport reportOf( const Lumo::String & path, const Lumo::String & type, MountDatabase database,
                      const Quon::EntitiesByPath & entities ) {
   const auto entity = entities.getEntity( path );
   return { .path = std::string( path ),
            .type = std::string( type ),
            .database = database,
            .present = entity && type == entity->typeData().typeName };
}

} // namespace

void MountList::doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                          const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) {
   mounts_ = mounts->mounts();
   sharedMemMounts_ = sharedMemMounts->mounts();
}

void MountList::onMountsComplete(
   const Lumo::Ptr< Keldb::EntityManager > & entities,
   const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) {
   entities_ = entities;
   sharedMemEntities_ = sharedMemEntities;
}

std::vector< MountReport > MountList::reports() const {
   std::vector< MountReport > reports;
   if ( !entities_ ) { return reports; }
   for ( const auto & mount : sharedMemMounts_ ) {
      reports.push_back( reportOf( mount.path, mount.entityType, MountDatabase::sharedMemory,
                                   *sharedMemEntities_ ) );
   }
   for ( const Keldb::Mount & mount : mounts_ ) {
      // By path alone, the database knows the type.
      const Keldb::Mount * const kept = entities_->pathType( mount.path() );
      const Keldb::Mount & meant = mount.byPathAlone() && kept ? *kept : mount;
      reports.push_back(
         reportOf( meant.path(), meant.entityType(), MountDatabase::state, *entities_ ) );
   }
   return reports;
}

} // namespace VeloAgent
