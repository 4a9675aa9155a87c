#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "Mpls/Mpls.h"
#include "NexthopGroup/NexthopGroup.h"
#include "Plink/Plink.h"
#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/FecIdToMplsRouteKeySet.h"

namespace VeloSdkRpc {

/// Told of a route that the hardware forwards by. The route is the callee's own.
using OnMplsRouteHwProgrammingUpdate = std::function< void( Mpls::Hardware::Route ) >;

/// Tells a client of every MPLS route that the hardware has been programmed with, together with the
/// next-hop group that it leads to. A route whose group has no name yet waits for the name.
///
///    route changed --same acknowledgement, same state?--> nothing
///                  --there, versioned, programmed, over a versioned group?--no--> nothing
///                  --group named?--no--> parked under its FEC
///                                  yes-> callback                  ^
///    name changed  --named?--> each route parked there is judged --'
///                    no------> what is parked there is dropped
///
/// There is no scan: what is there when the machine is made is told when it changes.
///
/// Owner      the watcher
/// Thread     event loop only; the callback is called from inside the change that causes it
/// Re-entry   the callback may change routes and names, stop this machine and drop the last
///            reference to it. From then on it is called no more; the machine goes when the
///            reaction in progress ends. A route that the callback itself causes to be told is not
///            told once more by a release that has yet to come to it
/// Errors     an exception of the callback passes through to whoever made the change. The route in
///            hand counts as told; those that a release had yet to come to stay parked. An empty
///            callback raises `std::bad_function_call`
class VELO_SDK_RPC_EXPORT MplsRouteHwProgrammingSm final : public Quon::Entity {
 public:
   using MplsHwStatusPtr = Lumo::Ptr< const Mpls::Hardware::Status >;
   using NexthopGroupMapPtr = Lumo::Ptr< const NexthopGroup::NexthopGroupMap >;
   using KeySetPtr = Lumo::Ptr< FecIdToMplsRouteKeySet >;
   using KeySetByFecId = Quon::HashMap2018< Plink::Fib::FecId, KeySetPtr >;

   /// Subscribes to the entities that are not null. Without a map no group has a name.
   MplsRouteHwProgrammingSm( const OnMplsRouteHwProgrammingUpdate & callback,
                             const MplsHwStatusPtr & status, const NexthopGroupMapPtr & nhgMap );
   ~MplsRouteHwProgrammingSm() override;

   const Quon::TypeData & typeData() const override;

   /// Enters or leaves the state in which no reaction runs.
   virtual void quonDoZombieReactors( bool zombie );

   const OnMplsRouteHwProgrammingUpdate & onMplsRouteHwProgrammingUpdate() const {
      return onMplsRouteHwProgrammingUpdate_;
   }
   const MplsHwStatusPtr & mplsHwStatus() const { return mplsHwStatus_; }
   const NexthopGroupMapPtr & nexthopGroupMap() const { return nexthopGroupMap_; }

   bool hasNotificationActive() const { return nodeFlag( Flag::hasNotificationActive ); }
   /// Subscribes to both entities, or unsubscribes. What is parked stays parked.
   void hasNotificationActiveIs( bool active );

   /// @name The index: which routes are parked, by FEC. O(1) but for the last
   /// @{
   const KeySetByFecId & fecIdToMplsRouteKeySet() const { return fecIdToMplsRouteKeySet_; }
   /// Null if there is none.
   KeySetPtr fecIdToMplsRouteKeySet( const Plink::Fib::FecId & fecId ) const;
   /// The present entry, or a new one without keys.
   KeySetPtr fecIdToMplsRouteKeySetIs( const Plink::Fib::FecId & fecId );
   /// Removes the entry and returns it; null if there was none.
   KeySetPtr fecIdToMplsRouteKeySetDel( const Plink::Fib::FecId & fecId );
   /// Removes every entry. O(n) for n FECs.
   void fecIdToMplsRouteKeySetDelAll();
   /// @}

   /// How many routes are parked under a FEC.
   struct ParkedRoutes {
      Plink::Fib::FecId fecId;
      std::size_t count;
      friend bool operator==( const ParkedRoutes &, const ParkedRoutes & ) = default;
   };
   /// For people who look for what a route waits for: all of the index, the FEC first under which
   /// something has been waiting longest. Changes nothing. O(n log n) for n FECs.
   std::vector< ParkedRoutes > parkedRoutes() const;

   /// @name Reactions
   /// The dispatch functions react to the one attribute that concerns them, and not at all once
   /// nobody but a reaction in progress refers to this machine. There must be a status.
   /// @{
   /// A change of the status, whose `key` is that of a route.
   void mplsHwStatusDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                              const void * key, const void * );
   /// A change of the map, whose `key` is that of a group.
   void nexthopGroupMapDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                                 const void * key, const void * );

   /// The route was added, changed or removed.
   void handleMplsRoute( const Mpls::RouteKey & key );
   /// The group was named, renamed, or lost its name. O(routes parked under its FEC).
   void handleNexthopGroupStatus( Routing::NexthopGroup::NexthopGroupId nhgId );
   /// Judges the route as it is now: tells it, parks it, or does nothing.
   void processRoute( const Mpls::RouteKey & key );
   /// @}

   /// Whether the route is programmed, over a next-hop group, and both have a version. Fatal for an
   /// adjacency type that does not exist.
   bool isICBSupported( const Mpls::Hardware::Route & route ) const;
   /// Whether the next-hop group that `fecId` leads to has a name in `nhgMap`, which may be null.
   static bool doesNhgExist( const Plink::Fib::FecId & fecId, const NexthopGroupMapPtr & nhgMap );

 private:
   class AtWork;
   class Release;

   void publish( const Mpls::Hardware::Route & route, const Plink::Fib::FecId & fecId );
   void noLongerParked( const Mpls::RouteKey & key, const Plink::Fib::FecId & fecId );
   void stayParked( const KeySetPtr & entry );
   void subscriptionsAre( bool wanted );
   bool forsaken() const;

   const OnMplsRouteHwProgrammingUpdate onMplsRouteHwProgrammingUpdate_;
   const MplsHwStatusPtr mplsHwStatus_;
   Lumo::MemberSubscriber< MplsRouteHwProgrammingSm,
                           &MplsRouteHwProgrammingSm::mplsHwStatusDispatch >
      onMplsHwStatus_{ this };
   const NexthopGroupMapPtr nexthopGroupMap_;
   Lumo::MemberSubscriber< MplsRouteHwProgrammingSm,
                           &MplsRouteHwProgrammingSm::nexthopGroupMapDispatch >
      onNexthopGroupMap_{ this };
   KeySetByFecId fecIdToMplsRouteKeySet_;

   std::uint64_t entriesMade_ = 0; ///< The age of the next index entry.
   unsigned holds_ = 0;            ///< References that reactions in progress hold on this.
   Release * releases_ = nullptr;  ///< Those in progress, innermost first.
};

/// Makes the machine and turns its notifications on.
VELO_SDK_RPC_EXPORT Lumo::Ptr< MplsRouteHwProgrammingSm >
MplsRouteHwProgrammingSmIs( const OnMplsRouteHwProgrammingUpdate & callback,
                            const Lumo::Ptr< const Mpls::Hardware::Status > & status,
                            const Lumo::Ptr< const NexthopGroup::NexthopGroupMap > & nhgMap );

} // namespace VeloSdkRpc
