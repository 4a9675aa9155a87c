#pragma once

#include <functional>
#include <vector>

#include "Lumo/Publisher.h"
#include "Quon/Entity.h"

namespace Quon::test {

/// Notes the attribute ids that an entity publishes, then does what it was asked to: deletes, adds,
/// throws, lets go of things.
class EntityWatcher {
 public:
   explicit EntityWatcher( const PublishingEntity & entity ) {
      entity.publisher()->subscriberAdd( slot_ );
   }
   bool isZombie() const { return false; }

   std::vector< short > told;
   /// What it does when it is told of a change.
   std::function< void( const Lumo::Notification & change ) > then;

 private:
   void changed( Lumo::Publisher * publisher, Lumo::Subscriber *, short attributeId, const void *,
                 const void * ) {
      told.push_back( attributeId );
      const auto act = then; // which may replace itself
      if ( act ) { act( *publisher->notification( attributeId ) ); }
   }

   Lumo::MemberSubscriber< EntityWatcher, &EntityWatcher::changed > slot_{ this };
};

} // namespace Quon::test
