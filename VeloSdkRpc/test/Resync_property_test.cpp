// Random scripts of set, delete, begin and complete against a model of two sets, and subscribers
// that take part in the script while they are being told.

#include "VeloSdkRpc/test/RoutingMgrs.h"

#include <cstdint>
#include <ostream>
#include <set>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/EntityWatcher.h"

namespace VeloSdkRpc::test {
namespace {

enum class Verb { set, del, setDirectly, delDirectly, init, complete };

struct Deed {
   Verb verb;
   std::uint32_t number;
   std::uint32_t weight;

   friend std::ostream & operator<<( std::ostream & os, const Deed & deed ) {
      constexpr const char * kNames[] = { "set",         "del",  "setDirectly",
                                          "delDirectly", "init", "complete" };
      return os << kNames[static_cast< int >( deed.verb )] << ' ' << deed.number << '='
                << deed.weight;
   }
};
using Deeds = std::vector< Deed >;

rc::Gen< Deeds > deeds( const std::vector< Verb > & verbs ) {
   return rc::gen::container< Deeds >( rc::gen::construct< Deed >(
      rc::gen::elementOf( verbs ), rc::gen::inRange( 0U, 12U ), rc::gen::inRange( 0U, 3U ) ) );
}

/// A manager and what it must amount to. What others write while a bracket is being completed is
/// left out: whether it stays depends on whose turn it is.
template< class Mgr >
class World {
 public:
   explicit World( const std::vector< Deeds > & whims ) : whims_( whims ) {
      watcher_.then = [this]( const Lumo::Notification & change ) { told( change ); };
   }

   void play( const Deed & deed ) {
      const std::uint32_t n = deed.number;
      switch ( deed.verb ) {
      case Verb::set:
         if ( resync_ ) { sent_.insert( n ); }
         contents_[n] = deed.weight;
         return mgr_.set( n, deed.weight );
      case Verb::del:
         sent_.erase( n );
         contents_.erase( n );
         return mgr_.del( n );
      case Verb::setDirectly:
         contents_[n] = deed.weight;
         return mgr_.setDirectly( n, deed.weight );
      case Verb::delDirectly:
         contents_.erase( n );
         return mgr_.delDirectly( n );
      case Verb::init:
         sent_.clear();
         resync_ = true;
         ++begun_;
         return mgr_.init();
      case Verb::complete:
         return complete();
      }
   }

   void check() const { RC_ASSERT( mgr_.contents() == contents_ ); }

 private:
   void complete() {
      const bool wasInResync = resync_;
      const unsigned begunBefore = begun_, completedBefore = completed_;
      const Weights before = contents_;
      try {
         ++completing_;
         mgr_.complete();
         RC_ASSERT( wasInResync );
         if ( completed_ == completedBefore ) { // else by a whim, inside of this one
            completed( begun_ != begunBefore );
         }
      } catch ( const velo::configuration_error & ) {
         RC_ASSERT( !wasInResync );
         RC_ASSERT( contents_ == before );
      }
      --completing_;
      check();
   }

   void completed( bool begunAgainMeanwhile ) {
      // Everything unsent has been told as it went; what is left was sent, all of it. But what the
      // pass had seen before it was begun again stays, though it counts as sent no more.
      for ( const auto & [n, weight] : contents_ ) {
         RC_ASSERT( sent_.contains( n ) || begunAgainMeanwhile );
      }
      sent_.clear();
      resync_ = false;
      ++completed_;
   }

   void told( const Lumo::Notification & change ) {
      const std::uint32_t n = mgr_.number( change.key );
      // Of what the script does itself the model knows already.
      if ( completing_ && !change.newValue && contents_.contains( n ) ) {
         RC_ASSERT( resync_ );
         RC_ASSERT( !sent_.contains( n ) );
         contents_.erase( n );
      }
      if ( nextWhim_ == whims_.size() ) { return; }
      for ( const Deed & deed : whims_[nextWhim_++] ) { play( deed ); }
   }

   const std::vector< Deeds > whims_;
   std::size_t nextWhim_ = 0;
   Mgr mgr_;
   Weights contents_;
   std::set< std::uint32_t > sent_;
   bool resync_ = false;
   unsigned completing_ = 0;
   unsigned begun_ = 0;
   unsigned completed_ = 0;
   Quon::test::EntityWatcher watcher_{ mgr_.entity() };
};

template< class Mgr >
void storyHolds( const std::vector< Deeds > & whims ) {
   World< Mgr > world( whims );
   // Brackets long enough for one number to be sent, deleted and written by others in them.
   const auto script = *rc::gen::resize(
      400, deeds( { Verb::set, Verb::set, Verb::set, Verb::set, Verb::del, Verb::del, Verb::del,
                    Verb::setDirectly, Verb::setDirectly, Verb::setDirectly, Verb::delDirectly,
                    Verb::init, Verb::complete } ) );
   for ( const Deed & deed : script ) {
      world.play( deed );
      world.check();
   }
}

RC_GTEST_PROP( ResyncProperty, LinkWeightsAreTheModels, () ) { storyHolds< LinkWeights >( {} ); }

RC_GTEST_PROP( ResyncProperty, ViaOverridesAreTheModels, () ) { storyHolds< ViaOverrides >( {} ); }

/// Those who are told take part through the manager.
std::vector< Deeds > whims() {
   return *rc::gen::container< std::vector< Deeds > >( rc::gen::weightedOneOf< Deeds >(
      { { 2, rc::gen::just( Deeds() ) },
        { 1, rc::gen::resize( 4, deeds( { Verb::set, Verb::set, Verb::del, Verb::delDirectly,
                                          Verb::init, Verb::complete } ) ) } } ) );
}

RC_GTEST_PROP( ResyncProperty, LinkWeightsSurviveSubscribersThatTakePart, () ) {
   storyHolds< LinkWeights >( whims() );
}

RC_GTEST_PROP( ResyncProperty, ViaOverridesSurviveSubscribersThatTakePart, () ) {
   storyHolds< ViaOverrides >( whims() );
}

} // namespace
} // namespace VeloSdkRpc::test
