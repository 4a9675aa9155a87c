#include "velo/mount_mgr.h"

#include <map>

#include <fmt/format.h>

#include "Lumo/Assert.h"
#include "Lumo/ScopeExit.h"
#include "Lumo/Thread.h"
#include "Quon/EntityTypes.h"

namespace velo {
namespace {

void checkFlags( const Keldb::Mount & mount ) {
   if ( mount.flags() == Keldb::AllMountFlags( 0 ) ) {
      throw mount_protocol_error(
         fmt::format( "{} is to be mounted without any flag", mount.path() ) );
   }
}

void checkFlags( const QuonSharedMem::MountGroup::Mount & mount ) {
   if ( !mount.info.reader ) {
      throw mount_protocol_error(
         fmt::format( "{} is in shared memory and can be mounted for a reader only", mount.path ) );
   }
}

/// The types of the paths that one group mounts: no two for one path.
class TypesByPath {
 public:
   void check( const Lumo::String & path, const Lumo::String & type ) {
      if ( type.empty() ) {
         throw mount_protocol_error( fmt::format( "{} is to be mounted without a type", path ) );
      }
      const auto & [at, inserted] = types_.emplace( path, type );
      if ( !inserted && at->second != type ) {
         throw mount_protocol_error(
            fmt::format( "{} is to be mounted both as {} and as {}", path, at->second, type ) );
      }
   }

 private:
   std::map< Lumo::String, Lumo::String > types_;
};

void checkPath( const Lumo::String & path ) {
   if ( path.empty() ) { throw mount_protocol_error( "a mount without a path" ); }
}

void checkTypeCanBeMade( const Keldb::Mount & mount, const Keldb::EntityManager & entities ) {
   const bool toBeMade =
      mount.flags().has( Keldb::MountFlag::initialize ) && !entities.getEntity( mount.path() );
   if ( toBeMade && !Quon::entityTypeExists( mount.entityType() ) ) {
      throw mount_protocol_error( fmt::format( "{} is to be made as {}, which is no entity type",
                                               mount.path(), mount.entityType() ) );
   }
}

/// What a request means: by path alone, what the database keeps for that path or, if it keeps
/// nothing, the entity that stands there.
Keldb::Mount meant( const Keldb::Mount & mount, const Keldb::EntityManager & entities ) {
   if ( !mount.byPathAlone() ) { return mount; }
   if ( const Keldb::Mount * kept = entities.pathType( mount.path() ) ) { return *kept; }
   if ( const auto present = entities.getEntity( mount.path() ) ) {
      Keldb::Mount asItIs( mount.path(), present->typeData().typeName );
      asItIs.handleFlags( "w" );
      return asItIs;
   }
   throw mount_protocol_error( fmt::format(
      "{} is to be mounted by path alone, but the state database keeps no type for that path",
      mount.path() ) );
}

void check( const Keldb::MountGroup & group, const Keldb::EntityManager & entities ) {
   TypesByPath types;
   for ( const Keldb::Mount & asked : group.mounts() ) {
      checkPath( asked.path() );
      const Keldb::Mount mount = meant( asked, entities );
      types.check( mount.path(), mount.entityType() );
      checkFlags( mount );
      checkTypeCanBeMade( mount, entities );
   }
}

void check( const QuonSharedMem::MountGroup & group ) {
   TypesByPath types;
   for ( const QuonSharedMem::MountGroup::Mount & mount : group.mounts() ) {
      checkPath( mount.path );
      types.check( mount.path, mount.entityType );
      checkFlags( mount );
   }
}

} // namespace

mount_protocol_error::~mount_protocol_error() = default;

mount_mgr::mount_mgr( const Lumo::Ptr< Keldb::EntityManager > & entities,
                      const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities )
   : entities_( entities ), sharedMemEntities_( sharedMemEntities ) {
   LUMO_ASSERT( entities );
   LUMO_ASSERT( sharedMemEntities );
}

mount_mgr::~mount_mgr() {
   while ( handlers_.next() != &handlers_ ) { handlers_.next()->unlink(); }
}

void mount_mgr::mountAll() {
   Lumo::Impl::checkEventLoopThread();
   if ( state_ != State::collectingHandlers ) {
      throw mount_protocol_error( "the mount protocol runs once, and it has begun already" );
   }
   state_ = State::mounting;
   const auto over = Lumo::onScopeExit( [this] { state_ = State::done; } );
   while ( firstHandler( mount_handler::Stage::registered ) ) { onePass(); }
}

/// Handlers come and go during each call, so every step looks for its handler anew.
void mount_mgr::onePass() {
   using Stage = mount_handler::Stage;
   const auto mounts = Lumo::makeNode< Keldb::MountGroup >();
   const auto sharedMemMounts = Lumo::makeNode< QuonSharedMem::MountGroup >();
   while ( mount_handler * handler = firstHandler( Stage::registered ) ) {
      handler->stage_ = Stage::collected;
      handler->doMounts( mounts, sharedMemMounts );
   }
   check( *mounts, *entities_ );
   check( *sharedMemMounts );
   for ( const Keldb::Mount & mount : mounts->mounts() ) {
      entities_->mount( meant( mount, *entities_ ) );
   }
   while ( mount_handler * handler = firstHandler( Stage::collected ) ) {
      handler->stage_ = Stage::complete;
      handler->onMountsComplete( entities_, sharedMemEntities_ );
   }
}

void mount_mgr::registerHandler( mount_handler & handler ) {
   Lumo::Impl::checkEventLoopThread();
   const Lumo::String & name = handler.get_mount_point_name();
   if ( state_ == State::done ) {
      throw mount_protocol_error(
         fmt::format( "mount handler {:?} comes after the mounts are complete", name.view() ) );
   }
   for ( Lumo::Link * at = handlers_.next(); at != &handlers_ && !name.empty(); at = at->next() ) {
      if ( static_cast< mount_handler * >( at )->get_mount_point_name() == name ) {
         throw mount_protocol_error(
            fmt::format( "there are two mount handlers called {}", name ) );
      }
   }
   static_cast< Lumo::Link & >( handler ).linkBefore( handlers_ );
}

mount_handler * mount_mgr::firstHandler( mount_handler::Stage stage ) {
   for ( Lumo::Link * at = handlers_.next(); at != &handlers_; at = at->next() ) {
      auto * handler = static_cast< mount_handler * >( at );
      if ( handler->stage_ == stage ) { return handler; }
   }
   return nullptr;
}

} // namespace velo
