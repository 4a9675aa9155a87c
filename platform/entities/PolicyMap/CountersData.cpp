#include "PolicyMap/CountersData.h"

#include <utility>

#include "Quon/StringAttribute.h"

namespace PolicyMap::Counters {

CountersData::CountersData( const Lumo::String & name, const CountData & countData )
   : name_( Quon::checkedString( name ) ), countData_( countData ) {}

CountersData::~CountersData() = default;

void CountersData::countDataIs( const CountData & countData ) {
   if ( countData == countData_ ) { return; }
   const CountData current = countData;
   const CountData previous = std::exchange( countData_, current );
   publisher()->publishChange( kCountData, nullptr, &previous, &current );
}

const Quon::TypeData & CountersData::typeData() const {
   static constexpr Quon::TypeData type{ kTypeName, Quon::kAttributeNames< CountersData > };
   return type;
}

} // namespace PolicyMap::Counters
