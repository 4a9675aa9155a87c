#include "PolicyMap/PolicyMapTypeCounters.h"

#include <string_view>

#include "Lumo/Assert.h"

namespace PolicyMap::Counters {

PolicyMapTypeCounters::PolicyMapTypeCounters() : policyMapCounters_( *this ) {}

PolicyMapTypeCounters::~PolicyMapTypeCounters() = default;

void PolicyMapTypeCounters::policyMapCountersIs( const PolicyMapKey & key,
                                                 const PolicyMapCountersPtr & counters ) {
   LUMO_ASSERT( !counters || counters->key() == key );
   policyMapCounters_.memberIs( key, counters );
}

const Quon::TypeData & PolicyMapTypeCounters::typeData() const {
   static constexpr std::string_view kAttributes[] = { "policyMapCounters" };
   static constexpr Quon::TypeData type{ "PolicyMap::Counters::PolicyMapTypeCounters",
                                         kAttributes };
   return type;
}

} // namespace PolicyMap::Counters
