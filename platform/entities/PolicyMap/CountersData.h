#pragma once

#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Lumo/String.h"
#include "PolicyMap/CountData.h"
#include "Quon/Entity.h"
#include "Quon/Text.h"

namespace PolicyMap::Counters {

/// The counters of one class of a policy map. There is one per class in the system: it is small,
/// and updating it allocates nothing.
///
/// Owner      the `classCounters` of its policy map, and the records that carry it
/// Thread     event loop only
/// Re-entry   `countDataIs` ends with the notification: a subscriber may let go of this entity
class VELO_PLATFORM_EXPORT CountersData final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kCountData = 1;

   /// Errors: the range error for a name longer than a string attribute may be.
   explicit CountersData( const Lumo::String & name, const CountData & countData = {} );
   ~CountersData() override;

   /// The class's name, which is its key in `classCounters`.
   const Lumo::String & name() const { return name_; }

   const CountData & countData() const { return countData_; }

   /// Publishes `kCountData` with the old and the new `CountData` if they differ.
   void countDataIs( const CountData & countData );

   const Quon::TypeData & typeData() const override;

   static constexpr std::string_view kTypeName = "PolicyMap::Counters::CountersData";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "name", &CountersData::name ),
                              Quon::attribute( "countData", &CountersData::countData ) );
   }

 private:
   const Lumo::String name_;
   CountData countData_;
};

static_assert( sizeof( CountersData ) <= 64, "one cache line per class" );

} // namespace PolicyMap::Counters
