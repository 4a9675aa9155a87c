#include "VeloSdkRpc/PbrCountersMgr.h"

#include "Lumo/ScopeExit.h"

namespace VeloSdkRpc {
namespace {

const Lumo::String countersPath = "policyMap/counters/pbr";
const Lumo::String countersType = "PolicyMap::Counters::PolicyMapTypeCounters";

/// What comes before a state machine is let go of. A reaction in progress may hold it: what that
/// has begun is finished, but it hears nothing new beside its successor.
template< class Sm >
void hearsNoMore( const Lumo::Ptr< Sm > & machine ) {
   if ( machine ) { machine->hasNotificationActiveIs( false ); }
}

template< class Sm >
void letGo( Lumo::Ptr< Sm > & machine ) {
   hearsNoMore( machine );
   machine = nullptr;
}

/// Leaves both state machines the way they run by default.
Ivx::SmControl smControl() {
   constexpr std::uint8_t kMachinesOwnChoice = 3;
   return Ivx::SmControl( nullptr, 0, {}, kMachinesOwnChoice );
}

} // namespace

PbrPolicyCountersMgr::PbrPolicyCountersMgr( velo::mount_mgr * mountMgr )
   : velo::mount_handler( mountMgr ),
     shortKeys_( PbrCountersKeyCompressionTableIs() ),
     backlog_( PbrCountersBacklogIs( shortKeys_ ) ),
     backlogTask_( PbrCountersBacklogTaskIs( "PbrCountersStream", backlog_ ) ) {}

PbrPolicyCountersMgr::~PbrPolicyCountersMgr() {
   hearsNoMore( pbrCountersBacklogSm_ );
   hearsNoMore( compressedKeyTableSm_ );
}

void PbrPolicyCountersMgr::doMounts(
   const Lumo::Ptr< Keldb::MountGroup > &,
   const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) {
   sharedMemMounts->doMount( countersPath, countersType, QuonSharedMem::MountInfo::forReader() );
}

void PbrPolicyCountersMgr::onMountsComplete(
   const Lumo::Ptr< Keldb::EntityManager > &,
   const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemEntities ) {
   const auto status = sharedMemEntities->getEntity( countersPath );
   if ( !sharedMemEntities->accessIsSafe() ) {
      sharedMemEntities->assertSafeToAccess( status, countersPath );
   }
   const bool hadStatus = static_cast< bool >( root_ );
   root_ = Quon::entityCast< const PolicyMapTypeCounters >( status );
   if ( !hadStatus ) { letGo( compressedKeyTableSm_ ); } // It watches what stood in for the status.
   switchFromBacklogSm();
}

void PbrPolicyCountersMgr::startWatching( const Lumo::Ptr< PbrCountersFrontend > & frontend ) {
   const velo::sdk_scoped_lock lock;
   switchToBacklogSm();
   backlog_->frontendIs( frontend );
}

void PbrPolicyCountersMgr::stopWatching() {
   const velo::sdk_scoped_lock lock;
   switchFromBacklogSm();
}

void PbrPolicyCountersMgr::switchToBacklogSm() {
   streamingWanted_ = true;
   switchAsWanted();
}

void PbrPolicyCountersMgr::switchFromBacklogSm() {
   streamingWanted_ = false;
   switchAsWanted();
}

/// A new backlog machine publishes while it is being made, and who hears it may want to switch
/// again: that is then seen to by the call in progress.
void PbrPolicyCountersMgr::switchAsWanted() {
   if ( switching_ ) { return; }
   switching_ = true;
   const auto switched = Lumo::onScopeExit( [this] { switching_ = false; } );
   while ( streamingWanted_ ? !pbrCountersBacklogSm_ : !compressedKeyTableSm_ ) {
      if ( streamingWanted_ ) {
         beginStreaming();
      } else {
         beginIdling();
      }
   }
}

void PbrPolicyCountersMgr::beginStreaming() {
   letGo( compressedKeyTableSm_ );
   backlog_->allFiledAnew(); // A consumer may call this in the middle of a run.
   try {
      pbrCountersBacklogSm_ = PbrCountersBacklogSmIs( input(), backlog_, shortKeys_, smControl() );
   } catch ( ... ) { // A subscriber of the backlog broke: somebody must follow the tree still.
      streamingWanted_ = false;
      beginIdling();
      throw;
   }
}

void PbrPolicyCountersMgr::beginIdling() {
   letGo( pbrCountersBacklogSm_ );
   compressedKeyTableSm_ = CompressedKeyTableSmIs( input(), shortKeys_, smControl() );
   shortKeys_->clearNovelKeys();
}

Lumo::Ptr< const PbrPolicyCountersMgr::PolicyMapTypeCounters > PbrPolicyCountersMgr::input() const {
   return root_ ? root_ : Lumo::makeNode< const PolicyMapTypeCounters >();
}

PbrCounters PbrPolicyCountersMgr::counters( std::uint64_t shortKey,
                                            const PbrCountersKey & longKey ) const {
   Lumo::Impl::checkEventLoopThread();
   PbrCounters unknown( shortKey, longKey, nullptr, false );
   if ( !root_ ) { return unknown; }
   const auto * policyMap = root_->policyMapCounters()[longKey.policyKey()];
   if ( !policyMap || !policyMap->value() ) { return unknown; }
   const auto * classCounters = policyMap->value()->classCounters()[longKey.name()];
   return { shortKey, longKey, classCounters ? classCounters->value() : nullptr, false };
}

} // namespace VeloSdkRpc
