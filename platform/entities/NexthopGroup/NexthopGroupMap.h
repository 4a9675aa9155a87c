#pragma once

#include "Lumo/Export.h"
#include "Lumo/String.h"
#include "NexthopGroup/NexthopGroupId.h"
#include "Quon/Entity.h"
#include "Quon/PublishedCollection.h"

namespace NexthopGroup {

/// The names of the next-hop groups, by id. A group that is being set up may not have one yet.
///
/// Owner      whoever configures next-hop groups, and whoever watches it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
class VELO_PLATFORM_EXPORT NexthopGroupMap final : public Quon::PublishingEntity {
 public:
   using NexthopGroupId = Routing::NexthopGroup::NexthopGroupId;

   /// The attribute ids under which changes are published.
   static constexpr short kNexthopGroupName = 1;

   using Names = Quon::PublishedValues< kNexthopGroupName, NexthopGroupId, Lumo::String >;

   NexthopGroupMap();
   ~NexthopGroupMap() override;

   const Names::Members & nexthopGroupName() const { return names_.members(); }

   /// An empty name is a name like any other here. Errors: the range error for a name longer than a
   /// string attribute may be.
   void nexthopGroupNameIs( NexthopGroupId id, const Lumo::String & name );
   void nexthopGroupNameDel( NexthopGroupId id ) { names_.memberDel( id ); }
   void nexthopGroupNameDelAll() { names_.memberDelAll(); }

   const Quon::TypeData & typeData() const override;

 private:
   Names names_;
};

} // namespace NexthopGroup
