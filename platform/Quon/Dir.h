#pragma once

#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "Quon/Entity.h"
#include "Quon/PublishedCollection.h"

namespace Quon {

/// A directory: entities of any types by name.
///
/// Owner      the mount, and whoever uses it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see PublishedCollection.h
class VELO_PLATFORM_EXPORT Dir final : public PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kEntity = 1;

   using Entities = PublishedCollection< kEntity, Lumo::String, Entity >;

   Dir();
   ~Dir() override;

   const Entities::Members & entity() const { return entities_.members(); }

   /// The entity called `name`, to change it; null if there is none.
   Entity * entityMutable( const Lumo::String & name ) { return entities_.memberMutable( name ); }

   /// The entity called `name`, whatever its type; made, with the type given, if there is none.
   ///
   /// Errors, when it is to be made: `EntityTypeException` when no entity type is called
   /// `typeName`; the range error for a name that is empty, has a slash in it or is longer than a
   /// string attribute may be. Nothing is changed then. An exception of a subscriber passes
   /// through; the entity is there.
   Lumo::Ptr< Entity > createEntity( const Lumo::String & typeName, const Lumo::String & name );

   /// No effect if there is none.
   void entityDel( const Lumo::String & name ) { entities_.memberDel( name ); }

   const TypeData & typeData() const override;

   static constexpr std::string_view kTypeName = "Quon::Dir";

 private:
   Entities entities_;
};

} // namespace Quon
