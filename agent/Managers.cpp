#include "agent/Managers.h"

namespace VeloAgent {

namespace {

const Lumo::String kPbrCountersPath = "policyMap/counters/pbr";
const Lumo::String kFibOverrideName = "sdk";
const Lumo::String kMplsStatusPath = "routing/hardware/mpls/status";

} // namespace

Managers::Managers( const Lumo::Ptr< PbrCountersRoot > & pbrCountersRoot )
   : mplsStatus_( Lumo::makeNode< Mpls::Hardware::Status >() ),
     nexthopGroups_( Lumo::makeNode< NexthopGroup::NexthopGroupMap >() ),
     watchedNexthopGroups_( nexthopGroups_ ),
     entities_( Lumo::makeNode< Keldb::EntityManager >() ),
     sharedMemEntities_( Lumo::makeNode< QuonSharedMem::EntityManager >() ),
     mounts_( entities_, sharedMemEntities_ ),
     pbrCounters_( &mounts_ ),
     linkWeights_( &mounts_ ),
     fibOverrides_( &mounts_, kFibOverrideName ),
     mplsRoutes_( &mounts_, &watchedNexthopGroups_ ),
     mountList_( &mounts_ ) {
   sharedMemEntities_->entityIs( kPbrCountersPath, pbrCountersRoot );
   entities_->entityIs( kMplsStatusPath, mplsStatus_ );

   // Mounted by path alone: what is there is for the database to know.
   Keldb::Mount fibOverrideConfig( fibOverrides_.getMountPath(),
                                   Routing::Fib::FibOverrideConfig::kTypeName );
   fibOverrideConfig.handleFlags( "wi" );
   entities_->pathTypeIs( fibOverrideConfig );
}

} // namespace VeloAgent
