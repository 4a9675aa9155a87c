#include "Quon/Dir.h"

#include <fmt/format.h>

#include "Quon/EntityTypes.h"
#include "Quon/Exceptions.h"
#include "Quon/StringAttribute.h"

namespace Quon {
namespace {

const EntityTypeRegistration< Dir > registered;

/// A name is one step of a path.
const Lumo::String & checkedName( const Lumo::String & name ) {
   if ( name.empty() || name.view().find( '/' ) != std::string_view::npos ) {
      throwRangeException( fmt::format(
         "{:?} cannot be the name of an entity in a directory: it must have one character "
         "at least, and no slash",
         name.view() ) );
   }
   return checkedString( name );
}

} // namespace

Dir::Dir() : entities_( *this ) {}

Dir::~Dir() = default;

Lumo::Ptr< Entity > Dir::createEntity( const Lumo::String & typeName, const Lumo::String & name ) {
   if ( Entity * const present = entities_.memberMutable( name ) ) {
      const std::string_view type = present->typeData().typeName;
      if ( type != typeName.view() ) {
         throwEntityTypeException(
            fmt::format( "the entity called {} is a {} and no {}", name, type, typeName ) );
      }
      return Lumo::Ptr< Entity >( present );
   }
   const auto made = Quon::createEntity( typeName );
   entities_.memberIs( checkedName( name ), made );
   return made;
}

const TypeData & Dir::typeData() const {
   static constexpr std::string_view kAttributes[] = { "entity" };
   static constexpr TypeData type{ kTypeName, kAttributes };
   return type;
}

} // namespace Quon
