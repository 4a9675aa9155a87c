#include "Quon/Dir.h"

#include "Quon/EntitiesByPath.h"
#include "Quon/EntityTypes.h"
#include "Quon/StringAttribute.h"

namespace Quon {
namespace {

const EntityTypeRegistration< Dir > registered;

} // namespace

Dir::Dir() : entities_( *this ) {}

Dir::~Dir() = default;

Lumo::Ptr< Entity > Dir::createEntity( const Lumo::String & typeName, const Lumo::String & name ) {
   if ( Entity * const present = entities_.memberMutable( name ) ) {
      return Lumo::Ptr< Entity >( present );
   }
   const auto made = Quon::createEntity( typeName );
   entities_.memberIs( checkedString( checkedPathStep( name ) ), made );
   return made;
}

const TypeData & Dir::typeData() const {
   static constexpr std::string_view kAttributes[] = { "entity" };
   static constexpr TypeData type{ kTypeName, kAttributes };
   return type;
}

} // namespace Quon
