#pragma once

#include "Lumo/Export.h"
#include "Lumo/Ptr.h"
#include "PolicyMap/PolicyMapCounters.h"
#include "PolicyMap/PolicyMapKey.h"
#include "Quon/Entity.h"
#include "Quon/PublishedCollection.h"

namespace PolicyMap::Counters {

/// The published counters of one type of policy maps, by policy map: the root of the tree.
///
/// Owner      the mount, and whoever watches it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
/// Invariant  every policy map sits under its own key; null is allowed
class VELO_PLATFORM_EXPORT PolicyMapTypeCounters final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kPolicyMapCounters = 1;

   using MapCounters =
      Quon::PublishedCollection< kPolicyMapCounters, PolicyMapKey, PolicyMapCounters >;
   using PolicyMapCountersPtr = MapCounters::Value;

   PolicyMapTypeCounters();
   ~PolicyMapTypeCounters() override;

   const MapCounters::Members & policyMapCounters() const { return policyMapCounters_.members(); }

   void policyMapCountersIs( const PolicyMapKey & key, const PolicyMapCountersPtr & counters );
   void policyMapCountersDel( const PolicyMapKey & key ) { policyMapCounters_.memberDel( key ); }
   void policyMapCountersDelAll() { policyMapCounters_.memberDelAll(); }

   /// For the writer of the tree: the counters of the policy map, or null.
   PolicyMapCounters * policyMapCountersMutable( const PolicyMapKey & key ) const {
      return policyMapCounters_.memberMutable( key );
   }

   const Quon::TypeData & typeData() const override;

 private:
   MapCounters policyMapCounters_;
};

} // namespace PolicyMap::Counters
