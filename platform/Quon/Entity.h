#pragma once

#include <span>
#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/Publisher.h"

namespace Quon {

/// What is known about an entity type at run time. One constant object per type.
struct TypeData {
   std::string_view typeName;
   std::span< const std::string_view > attributeNames;
};

/// A node that knows its type: everything that can be mounted, looked up and browsed.
class VELO_PLATFORM_EXPORT Entity : public Lumo::Node {
 public:
   ~Entity() override;
   virtual const TypeData & typeData() const = 0;
};

/// An entity that publishes the changes of its attributes.
class VELO_PLATFORM_EXPORT PublishingEntity : public Entity {
 public:
   ~PublishingEntity() override;
   Lumo::Publisher * publisher() const final { return &publisher_; }

 private:
   mutable Lumo::Publisher publisher_;
};

/// Checked downcast: the entity as a `T`, or null when it is null or of another type.
template< class T, class From >
Lumo::Ptr< T > entityCast( const Lumo::Ptr< From > & entity ) {
   return Lumo::dynamicPtrCast< T >( entity );
}

} // namespace Quon
