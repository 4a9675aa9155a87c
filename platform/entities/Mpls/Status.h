#pragma once

#include "Lumo/Export.h"
#include "Mpls/Route.h"
#include "Mpls/RouteKey.h"
#include "Quon/Entity.h"
#include "Quon/KeyTraits.h"
#include "Quon/PublishedCollection.h"

namespace Mpls::Hardware {

/// The MPLS routes that the hardware was given, by key.
///
/// Owner      the mount, and whoever watches it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
/// Invariant  every route sits under its own key (asserted)
class VELO_PLATFORM_EXPORT Status final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kRoute = 1;

   /// The route carries its key.
   struct RouteTraits : Quon::KeyTraits< RouteKey > {
      struct KeyFunktor {
         const RouteKey & operator()( const Hardware::Route & route ) const { return route.key(); }
      };
   };
   using Routes = Quon::PublishedValues< kRoute, RouteKey, Hardware::Route, RouteTraits >;

   Status();
   ~Status() override;

   const Routes::Members & route() const { return routes_.members(); }

   void routeIs( const RouteKey & key, const Hardware::Route & route ) {
      routes_.memberIs( key, route );
   }
   void routeDel( const RouteKey & key ) { routes_.memberDel( key ); }
   void routeDelAll() { routes_.memberDelAll(); }

   const Quon::TypeData & typeData() const override;

 private:
   Routes routes_;
};

} // namespace Mpls::Hardware
