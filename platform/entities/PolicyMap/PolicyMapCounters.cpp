#include "PolicyMap/PolicyMapCounters.h"

#include <string_view>

#include "Lumo/Assert.h"
#include "Quon/StringAttribute.h"

namespace PolicyMap::Counters {

PolicyMapCounters::PolicyMapCounters( const PolicyMapKey & key )
   : key_( key ), classCounters_( *this ) {}

PolicyMapCounters::~PolicyMapCounters() = default;

void PolicyMapCounters::classCountersIs( const Lumo::String & name, const CountersDataPtr & data ) {
   LUMO_ASSERT( !data || data->name() == name );
   classCounters_.memberIs( Quon::checkedString( name ), data );
}

const Quon::TypeData & PolicyMapCounters::typeData() const {
   static constexpr std::string_view kAttributes[] = { "key", "classCounters" };
   static constexpr Quon::TypeData type{ "PolicyMap::Counters::PolicyMapCounters", kAttributes };
   return type;
}

} // namespace PolicyMap::Counters
