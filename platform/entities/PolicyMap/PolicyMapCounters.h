#pragma once

#include "Lumo/Export.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "PolicyMap/CountersData.h"
#include "PolicyMap/PolicyMapKey.h"
#include "Quon/Entity.h"
#include "Quon/PublishedCollection.h"

namespace PolicyMap::Counters {

/// The counters of one policy map: those of its classes, by class name.
///
/// Owner      the `policyMapCounters` of its type, and whoever watches it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
/// Invariant  every class sits under its own name; a class without counters is null
class VELO_PLATFORM_EXPORT PolicyMapCounters final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kClassCounters = 1;

   using ClassCounters = Quon::PublishedCollection< kClassCounters, Lumo::String, CountersData >;
   using CountersDataPtr = ClassCounters::Value;

   explicit PolicyMapCounters( const PolicyMapKey & key );
   ~PolicyMapCounters() override;

   const PolicyMapKey & key() const { return key_; }

   const ClassCounters::Members & classCounters() const { return classCounters_.members(); }

   /// Errors: the range error for a name longer than a string attribute may be.
   void classCountersIs( const Lumo::String & name, const CountersDataPtr & data );
   void classCountersDel( const Lumo::String & name ) { classCounters_.memberDel( name ); }
   void classCountersDelAll() { classCounters_.memberDelAll(); }

   /// For the writer of the tree: the counters of the class, or null.
   CountersData * classCountersMutable( const Lumo::String & name ) const {
      return classCounters_.memberMutable( name );
   }

   const Quon::TypeData & typeData() const override;

 private:
   const PolicyMapKey key_;
   ClassCounters classCounters_;
};

} // namespace PolicyMap::Counters
