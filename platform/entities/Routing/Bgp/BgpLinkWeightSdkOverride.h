#pragma once

#include <string_view>

#include "Ipnet/IntfId.h"
#include "Lumo/Export.h"
#include "Quon/Entity.h"
#include "Quon/PublishedCollection.h"
#include "Routing/Bgp/BgpLinkWeightSdkOverrideEntry.h"

namespace Routing::Bgp {

/// The BGP link weights that SDK clients override, by interface. BGP watches it.
///
/// Owner      the directory that it is in, and whoever uses it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
class VELO_PLATFORM_EXPORT BgpLinkWeightSdkOverride final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kBgpLinkWeightSdkOverrideEntry = 1;

   using Entries = Quon::PublishedValues< kBgpLinkWeightSdkOverrideEntry, Ipnet::IntfId,
                                          BgpLinkWeightSdkOverrideEntry >;

   BgpLinkWeightSdkOverride();
   ~BgpLinkWeightSdkOverride() override;

   const Entries::Members & bgpLinkWeightSdkOverrideEntry() const { return entries_.members(); }

   void bgpLinkWeightSdkOverrideEntryIs( Ipnet::IntfId intf,
                                         const BgpLinkWeightSdkOverrideEntry & entry ) {
      entries_.memberIs( intf, entry );
   }
   void bgpLinkWeightSdkOverrideEntryDel( Ipnet::IntfId intf ) { entries_.memberDel( intf ); }
   /// The one that `at` stands on, which then advances.
   void bgpLinkWeightSdkOverrideEntryDel( Entries::Members::Iterator & at ) {
      entries_.memberDel( at );
   }
   /// Those whose interface is `unwanted`, if nobody subscribes; false if somebody does.
   template< class Unwanted >
   bool bgpLinkWeightSdkOverrideEntryDelUnseen( const Unwanted & unwanted ) {
      return entries_.memberDelUnseen( unwanted );
   }
   void bgpLinkWeightSdkOverrideEntryDelAll() { entries_.memberDelAll(); }

   const Quon::TypeData & typeData() const override;

   static constexpr std::string_view kTypeName = "Routing::Bgp::BgpLinkWeightSdkOverride";

 private:
   Entries entries_;
};

} // namespace Routing::Bgp
