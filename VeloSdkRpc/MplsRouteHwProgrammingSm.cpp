#include "VeloSdkRpc/MplsRouteHwProgrammingSm.h"

#include <algorithm>
#include <string_view>
#include <type_traits>
#include <utility>

namespace VeloSdkRpc {
namespace {

using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Mpls::Hardware::Status;
using NexthopGroup::NexthopGroupMap;
using Plink::Fib::FecId;

const Quon::TraceHandle & traceHandle() {
   static const Quon::TraceHandle handle( "MplsRouteHwProgrammingSm" );
   return handle;
}

/// Streams a message from here, if its level is enabled; else not even its parts are looked at.
#define MPLS_TRACE( level )                                                                        \
   if ( traceHandle().enabled( level ) ) [[unlikely]]                                              \
   Quon::TraceHelper( traceHandle(), level, "VeloSdkRpc/MplsRouteHwProgrammingSm", __LINE__,       \
                      __func__ )                                                                   \
      .stream()

AckInfo ackInfoOf( const Route & route ) { return route.ackInfo() ? *route.ackInfo() : AckInfo(); }

/// Whether the group has a name, which must not be empty. Without a map none has.
bool isNamed( Routing::NexthopGroup::NexthopGroupId nhgId,
              const Lumo::Ptr< const NexthopGroupMap > & nhgMap ) {
   const auto * const present = nhgMap ? nhgMap->nexthopGroupName().lookup( nhgId ) : nullptr;
   return present && !present->value().empty();
}

/// Whether the client need not be told of `current` again. What it is not asked about here may
/// change as it likes.
bool isDuplicate( const Route & previous, const Route & current ) {
   const AckInfo before = ackInfoOf( previous ), now = ackInfoOf( current );
   return before.routeVersion() == now.routeVersion() && before.fecId() == now.fecId() &&
          before.nexthopGroupVersion() == now.nexthopGroupVersion() && before.ack() == now.ack() &&
          previous.programmingState() == current.programmingState();
}

} // namespace

// Work in progress --------------------------------------------------------------------------------

/// Keeps the machine for as long as a reaction needs it, whatever its client does meanwhile.
class MplsRouteHwProgrammingSm::AtWork {
 public:
   explicit AtWork( MplsRouteHwProgrammingSm & sm ) : sm_( &sm ) { ++sm.holds_; }
   ~AtWork() { --sm_->holds_; }
   AtWork( const AtWork & ) = delete;
   AtWork & operator=( const AtWork & ) = delete;

 private:
   const Lumo::Ptr< MplsRouteHwProgrammingSm > sm_;
};

/// Judges every route of an entry that has been taken out of the index.
///
///    index    FEC a: 17 23                      what is parked from now on, under whatever FEC,
///             FEC c: 40                         waits here for the next change of a name
///
///    release  FEC b: 16 18 19 21 22
///                    told  ^     told by the client's own doing: taken out, not told again
///                          in hand
///
/// Since the entry is not in the index, the client may name the group again, or take the name away,
/// from inside the call: neither reaches the routes here, and each is judged once, by what holds
/// when its turn comes. If the client throws or does not want to hear any more, the routes behind
/// the one in hand go back into the index.
class MplsRouteHwProgrammingSm::Release {
 public:
   Release( MplsRouteHwProgrammingSm & sm, KeySetPtr entry )
      : sm_( sm ),
        entry_( std::move( entry ) ),
        at_( entry_->mplsRouteKeySet().iterator() ),
        outer_( std::exchange( sm.releases_, this ) ) {}
   ~Release() {
      sm_.releases_ = outer_;
      if ( !at_ ) { return; }
      entry_->mplsRouteKeySetDelUpToAndIncluding( at_.key() );
      sm_.stayParked( entry_ );
   }
   Release( const Release & ) = delete;
   Release & operator=( const Release & ) = delete;

   void run() {
      const bool wasActive = sm_.hasNotificationActive();
      for ( ; at_; at_.advance() ) {
         const Mpls::RouteKey key = at_.key();
         sm_.processRoute( key );
         if ( sm_.forsaken() || ( wasActive && !sm_.hasNotificationActive() ) ) { return; }
      }
   }

   /// The client is being told of `key`: no release in progress tells it once more.
   static void told( const Release * innermost, const Mpls::RouteKey & key ) {
      for ( const Release * r = innermost; r; r = r->outer_ ) {
         if ( r->at_ && r->at_.key() != key ) { r->entry_->mplsRouteKeySetDel( key ); }
      }
   }

 private:
   MplsRouteHwProgrammingSm & sm_;
   const KeySetPtr entry_;
   FecIdToMplsRouteKeySet::MplsRouteKeySet::Iterator at_;
   Release * const outer_;
};

/// Nobody but the reactions in progress refers to this machine: but for them it would be gone.
bool MplsRouteHwProgrammingSm::forsaken() const { return isZombie() || references() <= holds_; }

// Life --------------------------------------------------------------------------------------------

MplsRouteHwProgrammingSm::MplsRouteHwProgrammingSm( const OnMplsRouteHwProgrammingUpdate & callback,
                                                    const MplsHwStatusPtr & status,
                                                    const NexthopGroupMapPtr & nhgMap )
   : onMplsRouteHwProgrammingUpdate_( callback ),
     mplsHwStatus_( status ),
     nexthopGroupMap_( nhgMap ) {
   subscriptionsAre( true );
}

MplsRouteHwProgrammingSm::~MplsRouteHwProgrammingSm() {
   nodeFlagSet( Flag::hasNotificationActive, false );
   nodeFlagSet( Flag::zombie, true );
   subscriptionsAre( false );
   fecIdToMplsRouteKeySetDelAll();
}

Lumo::Ptr< MplsRouteHwProgrammingSm >
MplsRouteHwProgrammingSmIs( const OnMplsRouteHwProgrammingUpdate & callback,
                            const Lumo::Ptr< const Status > & status,
                            const Lumo::Ptr< const NexthopGroupMap > & nhgMap ) {
   const auto sm = Lumo::makeNode< MplsRouteHwProgrammingSm >( callback, status, nhgMap );
   sm->hasNotificationActiveIs( true );
   return sm;
}

const Quon::TypeData & MplsRouteHwProgrammingSm::typeData() const {
   static constexpr std::string_view kAttributes[] = { "onMplsRouteHwProgrammingUpdate",
                                                       "mplsHwStatus", "nexthopGroupMap",
                                                       "fecIdToMplsRouteKeySet" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::MplsRouteHwProgrammingSm", kAttributes };
   return kType;
}

void MplsRouteHwProgrammingSm::quonDoZombieReactors( bool zombie ) {
   if ( isZombie() != zombie ) { nodeFlagSet( Flag::zombie, zombie ); }
}

void MplsRouteHwProgrammingSm::hasNotificationActiveIs( bool active ) {
   if ( hasNotificationActive() == active ) { return; }
   nodeFlagSet( Flag::hasNotificationActive, active );
   subscriptionsAre( active );
}

void MplsRouteHwProgrammingSm::subscriptionsAre( bool wanted ) {
   if ( mplsHwStatus_ ) {
      Lumo::subscriptionIs( mplsHwStatus_->publisher(), onMplsHwStatus_, wanted );
   }
   if ( nexthopGroupMap_ ) {
      Lumo::subscriptionIs( nexthopGroupMap_->publisher(), onNexthopGroupMap_, wanted );
   }
}

// The index ---------------------------------------------------------------------------------------

MplsRouteHwProgrammingSm::KeySetPtr
MplsRouteHwProgrammingSm::fecIdToMplsRouteKeySet( const FecId & fecId ) const {
   const auto * const present = fecIdToMplsRouteKeySet_.lookup( fecId );
   return present ? present->value() : nullptr;
}

MplsRouteHwProgrammingSm::KeySetPtr
MplsRouteHwProgrammingSm::fecIdToMplsRouteKeySetIs( const FecId & fecId ) {
   if ( auto present = fecIdToMplsRouteKeySet( fecId ) ) { return present; }
   auto entry = Lumo::makeNode< FecIdToMplsRouteKeySet >( fecId );
   entry->ageIs( entriesMade_++ );
   fecIdToMplsRouteKeySet_.memberIs( fecId, entry );
   return entry;
}

MplsRouteHwProgrammingSm::KeySetPtr
MplsRouteHwProgrammingSm::fecIdToMplsRouteKeySetDel( const FecId & fecId ) {
   return fecIdToMplsRouteKeySet_.takeMember( fecId ).value_or( nullptr );
}

void MplsRouteHwProgrammingSm::fecIdToMplsRouteKeySetDelAll() {
   fecIdToMplsRouteKeySet_.memberDelAll();
}

std::vector< MplsRouteHwProgrammingSm::ParkedRoutes >
MplsRouteHwProgrammingSm::parkedRoutes() const {
   std::vector< const FecIdToMplsRouteKeySet * > entries;
   for ( const auto & each : fecIdToMplsRouteKeySet_ ) { entries.push_back( each.value().get() ); }
   std::ranges::sort( entries, {}, &FecIdToMplsRouteKeySet::age );
   std::vector< ParkedRoutes > parked;
   parked.reserve( entries.size() );
   for ( const auto * entry : entries ) {
      parked.push_back( { entry->fecId(), entry->mplsRouteKeySet().size() } );
   }
   return parked;
}

/// Puts an entry back that a release has taken out and not come to the end of.
void MplsRouteHwProgrammingSm::stayParked( const KeySetPtr & entry ) {
   if ( entry->mplsRouteKeySet().empty() ) { return; }
   if ( const auto present = fecIdToMplsRouteKeySet( entry->fecId() ) ) {
      present->mplsRouteKeySetMerge( *entry );
   } else {
      fecIdToMplsRouteKeySet_.memberIs( entry->fecId(), entry );
   }
}

/// The client is being told of the route: nothing that waits for the same group waits any longer
/// on its account. Normally nothing does; after an exception something may.
void MplsRouteHwProgrammingSm::noLongerParked( const Mpls::RouteKey & key, const FecId & fecId ) {
   Release::told( releases_, key );
   const auto * const present = fecIdToMplsRouteKeySet_.lookup( fecId );
   if ( !present ) { return; }
   present->value()->mplsRouteKeySetDel( key );
   if ( present->value()->mplsRouteKeySet().empty() ) { fecIdToMplsRouteKeySetDel( fecId ); }
}

// Reactions ---------------------------------------------------------------------------------------

void MplsRouteHwProgrammingSm::mplsHwStatusDispatch( Lumo::Publisher *, Lumo::Subscriber *,
                                                     short attributeId, const void * key,
                                                     const void * ) {
   if ( attributeId != Status::kRoute || forsaken() ) { return; }
   handleMplsRoute( *static_cast< const Mpls::RouteKey * >( key ) );
}

void MplsRouteHwProgrammingSm::nexthopGroupMapDispatch( Lumo::Publisher *, Lumo::Subscriber *,
                                                        short attributeId, const void * key,
                                                        const void * ) {
   if ( attributeId != NexthopGroupMap::kNexthopGroupName || forsaken() ) { return; }
   handleNexthopGroupStatus( *static_cast< const Routing::NexthopGroup::NexthopGroupId * >( key ) );
}

void MplsRouteHwProgrammingSm::handleMplsRoute( const Mpls::RouteKey & key ) {
   MPLS_TRACE( 7 ) << "void VeloSdkRpc::MplsRouteHwProgrammingSm::handleMplsRoute("
                      "const Mpls::RouteKey&)";
   const auto [previous, current] = Quon::Impl::getNotifyValues(
      *mplsHwStatus_->publisher(), Status::kRoute, std::type_identity< Route >() );
   if ( previous && current && isDuplicate( *previous, *current ) ) {
      MPLS_TRACE( 8 ) << "Skip publishing a duplicate event for integrated MPLS-NHG callback";
      return;
   }
   processRoute( key );
}

void MplsRouteHwProgrammingSm::handleNexthopGroupStatus(
   Routing::NexthopGroup::NexthopGroupId nhgId ) {
   MPLS_TRACE( 7 ) << "void VeloSdkRpc::MplsRouteHwProgrammingSm::handleNexthopGroupStatus("
                      "Routing::NexthopGroup::NexthopGroupId)";
   MPLS_TRACE( 8 ) << "Processing NHG ID: " << nhgId;
   const AtWork atWork( *this );
   const auto entry = fecIdToMplsRouteKeySetDel( FecId::nexthopGroupIdToFecId( nhgId ) );
   if ( entry && isNamed( nhgId, nexthopGroupMap_ ) ) { Release( *this, entry ).run(); }
}

void MplsRouteHwProgrammingSm::processRoute( const Mpls::RouteKey & key ) {
   MPLS_TRACE( 7 ) << "void VeloSdkRpc::MplsRouteHwProgrammingSm::processRoute("
                      "const Mpls::RouteKey&)"
                   << key;
   const auto * const present = mplsHwStatus_->route().lookup( key );
   const Route route = present ? present->value() : Route();
   if ( route.key() != key ) {
      MPLS_TRACE( 8 ) << "MPLS route key: " << key << " doesn't exist";
      return;
   }
   if ( !isICBSupported( route ) ) { return; }
   const FecId fecId = ackInfoOf( route ).fecId();
   if ( !doesNhgExist( fecId, nexthopGroupMap_ ) ) {
      fecIdToMplsRouteKeySetIs( fecId )->mplsRouteKeySetIs( key );
      return;
   }
   MPLS_TRACE( 8 ) << "Publish MPLS route key: " << key;
   publish( route, fecId );
}

bool MplsRouteHwProgrammingSm::isICBSupported( const Route & route ) const {
   const AckInfo ackInfo = ackInfoOf( route );
   if ( ackInfo.routeVersion() == 0 || route.programmingState() != Route::kProgrammed ) {
      MPLS_TRACE( 8 ) << "MPLS route is not versioned or unprogrammed" << route;
      return false;
   }
   if ( ackInfo.fecId().adjType() != Plink::Fib::AdjType::nexthopGroup ) {
      MPLS_TRACE( 8 ) << "MPLS route points to " << ackInfo.fecId() << " is not NHG adjacency";
      return false;
   }
   if ( ackInfo.nexthopGroupVersion() != 0 ) { return true; }
   MPLS_TRACE( 8 ) << "MPLS route points to a non-versioned NHG";
   return false;
}

bool MplsRouteHwProgrammingSm::doesNhgExist( const FecId & fecId,
                                             const NexthopGroupMapPtr & nhgMap ) {
   if ( isNamed( FecId::fecIdToNexthopGroupId( fecId ), nhgMap ) ) { return true; }
   MPLS_TRACE( 8 ) << "NHG mapping is not presented yet";
   return false;
}

/// The client may do anything: what it is called through and with are copies, and the machine
/// stays until it returns.
void MplsRouteHwProgrammingSm::publish( const Route & route, const FecId & fecId ) {
   const AtWork atWork( *this );
   noLongerParked( route.key(), fecId );
   const OnMplsRouteHwProgrammingUpdate callback = onMplsRouteHwProgrammingUpdate_;
   callback( route );
}

} // namespace VeloSdkRpc
