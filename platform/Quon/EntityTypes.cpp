#include "Quon/EntityTypes.h"

#include <map>

#include <fmt/format.h>

#include "Lumo/Assert.h"
#include "Quon/Exceptions.h"

namespace Quon {
namespace {

/// Made by the first registration, whichever that is, and destroyed after the last.
std::map< std::string_view, Impl::EntityFactory > & factories() {
   static std::map< std::string_view, Impl::EntityFactory > byName;
   return byName;
}

} // namespace

void Impl::entityTypeIs( std::string_view typeName, EntityFactory factory ) {
   const bool inserted = factories().emplace( typeName, factory ).second;
   LUMO_FMASSERT( inserted, "there are two entity types called {}", typeName );
}

void Impl::entityTypeDel( std::string_view typeName ) { factories().erase( typeName ); }

bool entityTypeExists( std::string_view typeName ) { return factories().contains( typeName ); }

Lumo::Ptr< Entity > createEntity( std::string_view typeName ) {
   const auto found = factories().find( typeName );
   if ( found == factories().end() ) {
      throwEntityTypeException( fmt::format( "there is no entity type called {:?}", typeName ) );
   }
   return found->second();
}

} // namespace Quon
