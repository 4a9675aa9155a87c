#include "NexthopGroup/NexthopGroupMap.h"

#include <string_view>

#include "Quon/StringAttribute.h"

namespace NexthopGroup {

NexthopGroupMap::NexthopGroupMap() : names_( *this ) {}

NexthopGroupMap::~NexthopGroupMap() = default;

void NexthopGroupMap::nexthopGroupNameIs( NexthopGroupId id, const Lumo::String & name ) {
   names_.memberIs( id, Quon::checkedString( name ) );
}

const Quon::TypeData & NexthopGroupMap::typeData() const {
   static constexpr std::string_view kAttributes[] = { "nexthopGroupName" };
   static constexpr Quon::TypeData type{ "NexthopGroup::NexthopGroupMap", kAttributes };
   return type;
}

} // namespace NexthopGroup
