#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Publisher.h"
#include "Lumo/ThrowingAssertionHandler.h"

namespace Lumo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr short kAttribute = 7;

/// Somebody with a name who hears of changes and may then do anything, also end its own life.
class Listener {
 public:
   Listener( std::string name, std::vector< std::string > & story )
      : name_( std::move( name ) ), story_( story ) {}

   bool isZombie() const { return zombie; }

   std::function< void() > reaction;
   bool zombie = false;

 private:
   void heard( Publisher *, Subscriber *, short, const void *, const void * value ) {
      story_.push_back( name_ + " hears " + static_cast< const char * >( value ) );
      if ( const auto reacting = reaction ) { reacting(); }
   }

   std::string name_;
   std::vector< std::string > & story_;

 public:
   MemberSubscriber< Listener, &Listener::heard > slot{ this };
};

/// A publisher and listeners that are known by their names.
class PublisherTest : public testing::Test {
 protected:
   void join( const std::string & name ) {
      auto & listener = listeners[name];
      if ( !listener ) { listener = std::make_unique< Listener >( name, story ); }
      publisher->subscriberAdd( listener->slot );
   }
   void leave( const std::string & name ) {
      publisher->subscriberRemove( listeners.at( name )->slot );
   }
   void destroy( const std::string & name ) { listeners.erase( name ); }
   void when( const std::string & name, std::function< void() > reaction ) {
      listeners.at( name )->reaction = std::move( reaction );
   }
   /// As `when`, but the first time only.
   void once( const std::string & name, std::function< void() > reaction ) {
      when( name, [this, name, reaction] {
         listeners.at( name )->reaction = nullptr;
         reaction();
      } );
   }

   void change( const char * text ) {
      publisher->publishChange( kAttribute, nullptr, nullptr, text );
   }
   const char * changeBeingTold() const {
      const Notification * told = publisher->notification( kAttribute );
      return told ? static_cast< const char * >( told->newValue ) : "none";
   }

   std::unique_ptr< Publisher > publisher = std::make_unique< Publisher >();
   std::map< std::string, std::unique_ptr< Listener > > listeners;
   std::vector< std::string > story;
};

TEST_F( PublisherTest, EveryListenerHearsOfAChangeInTheOrderOfJoining ) {
   for ( const char * name : { "b", "c", "a" } ) { join( name ); }
   change( "1" );
   change( "2" );
   EXPECT_THAT( story, ElementsAre( "b hears 1", "c hears 1", "a hears 1", "b hears 2", "c hears 2",
                                    "a hears 2" ) );
}

TEST_F( PublisherTest, WhoLeftHearsNothingAndMayJoinAgain ) {
   join( "a" );
   leave( "a" );
   leave( "a" );
   change( "1" );
   join( "a" );
   change( "2" );
   EXPECT_THAT( story, ElementsAre( "a hears 2" ) );
}

TEST_F( PublisherTest, ADestroyedListenerHasLeft ) {
   join( "a" );
   join( "b" );
   destroy( "a" );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "b hears 1" ) );
}

TEST_F( PublisherTest, AListenerOutlivesItsPublisherAndIsFreeAgain ) {
   join( "a" );
   publisher = std::make_unique< Publisher >();
   EXPECT_FALSE( listeners["a"]->slot.subscribed() );
   join( "a" );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
}

TEST_F( PublisherTest, ThePlainDispatchFunctionGetsPublisherSlotAttributeKeyAndValue ) {
   struct Call {
      Publisher * publisher;
      Subscriber * slot;
      short attributeId;
      const void *key, *value;
      bool operator==( const Call & ) const = default;
   };
   static std::vector< Call > calls;
   calls.clear();
   Subscriber slot( []( Publisher * p, Subscriber * s, short id, const void * k, const void * v ) {
      calls.push_back( { p, s, id, k, v } );
   } );
   const int key = 1, oldValue = 2, newValue = 3;
   publisher->subscriberAdd( slot );
   publisher->publishChange( -4, &key, &oldValue, &newValue );
   publisher->publishChange( 5, &key, &oldValue );
   EXPECT_THAT( calls, ElementsAre( Call{ publisher.get(), &slot, -4, &key, &newValue },
                                    Call{ publisher.get(), &slot, 5, &key, nullptr } ) );
}

TEST_F( PublisherTest, AChangeOfOnesOwnAttributeIsToldUnlessNothingChanged ) {
   join( "a" );
   publisher->publishChangeRecursive( kAttribute, nullptr, "old", true, "same" );
   publisher->publishChangeRecursive( kAttribute, nullptr, "old", false, "new" );
   EXPECT_THAT( story, ElementsAre( "a hears new" ) );
}

TEST_F( PublisherTest, AZombieIsNotCalled ) {
   join( "a" );
   join( "b" );
   listeners["a"]->zombie = true;
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "b hears 1" ) );
}

TEST_F( PublisherTest, WhoBecomesAZombieDuringADispatchIsNotCalledAnyMore ) {
   join( "a" );
   join( "b" );
   when( "a", [this] { listeners["b"]->zombie = true; } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
}

TEST_F( PublisherTest, RemovesItself ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   when( "b", [this] { leave( "b" ); } );
   change( "1" );
   change( "2" );
   EXPECT_THAT( story,
                ElementsAre( "a hears 1", "b hears 1", "c hears 1", "a hears 2", "c hears 2" ) );
}

TEST_F( PublisherTest, RemovesNext ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   when( "a", [this] { leave( "b" ); } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "c hears 1" ) );
}

TEST_F( PublisherTest, RemovesWhoHasHeardAlready ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   when( "b", [this] { leave( "a" ); } );
   change( "1" );
   change( "2" );
   EXPECT_THAT( story,
                ElementsAre( "a hears 1", "b hears 1", "c hears 1", "b hears 2", "c hears 2" ) );
}

TEST_F( PublisherTest, RemovesEverybody ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   when( "a", [this] {
      for ( const char * name : { "c", "a", "b" } ) { leave( name ); }
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
   EXPECT_FALSE( publisher->hasSubscribers() );
}

TEST_F( PublisherTest, DestroysItself ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   when( "b", [this] { destroy( "b" ); } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "b hears 1", "c hears 1" ) );
}

TEST_F( PublisherTest, DestroysOther ) {
   for ( const char * name : { "a", "b", "c", "d" } ) { join( name ); }
   when( "b", [this] {
      destroy( "c" );
      destroy( "a" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "b hears 1", "d hears 1" ) );
}

TEST_F( PublisherTest, AddsSlotWhichWaitsForTheNextChange ) {
   join( "a" );
   once( "a", [this] { join( "b" ); } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
   change( "2" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2", "b hears 2" ) );
}

TEST_F( PublisherTest, WhoLeavesAndJoinsAgainDuringADispatchWaitsForTheNextChange ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   once( "a", [this] {
      leave( "b" );
      join( "b" );
   } );
   change( "1" );
   change( "2" );
   EXPECT_THAT( story,
                ElementsAre( "a hears 1", "c hears 1", "a hears 2", "c hears 2", "b hears 2" ) );
}

TEST_F( PublisherTest, PublishesAgainAndEverybodyHearsBothChanges ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   once( "b", [this] { change( "2" ); } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "b hears 1", "a hears 2", "b hears 2", "c hears 2",
                                    "c hears 1" ) );
}

TEST_F( PublisherTest, WhoJoinsDuringADispatchHearsOfANestedChangeButNotOfTheOuterOne ) {
   join( "a" );
   once( "a", [this] {
      join( "b" );
      change( "2" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2", "b hears 2" ) );
}

TEST_F( PublisherTest, WhoJoinsDuringANestedDispatchHearsOfNeither ) {
   join( "a" );
   once( "a", [this] {
      once( "a", [this] { join( "b" ); } );
      change( "2" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2" ) );
}

TEST_F( PublisherTest, RemovesNextDuringANestedDispatchSparesItBothChanges ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   once( "a", [this] {
      once( "a", [this] { leave( "b" ); } );
      change( "2" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2", "c hears 2", "c hears 1" ) );
}

TEST_F( PublisherTest, DestroysPublisher ) {
   join( "a" );
   join( "b" );
   when( "a", [this] { publisher.reset(); } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
   EXPECT_FALSE( listeners["b"]->slot.subscribed() );
}

TEST_F( PublisherTest, DestroysPublisherFromANestedDispatchEndsBoth ) {
   join( "a" );
   join( "b" );
   once( "a", [this] {
      when( "a", [this] { publisher.reset(); } );
      change( "2" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2" ) );
}

TEST_F( PublisherTest, ThrowingSubscriberEndsTheDispatchAndNothingElse ) {
   for ( const char * name : { "a", "b", "c" } ) { join( name ); }
   once( "b", [] { throw std::runtime_error( "b has had enough" ); } );
   EXPECT_THROW( change( "1" ), std::runtime_error );
   EXPECT_STREQ( changeBeingTold(), "none" );
   change( "2" );
   EXPECT_THAT( story,
                ElementsAre( "a hears 1", "b hears 1", "a hears 2", "b hears 2", "c hears 2" ) );
   for ( const char * name : { "a", "b", "c" } ) { leave( name ); }
   EXPECT_FALSE( publisher->hasSubscribers() );
}

TEST_F( PublisherTest, AnExceptionOfANestedDispatchMayBeCaughtByTheOuterListener ) {
   join( "a" );
   join( "b" );
   once( "a", [this] {
      once( "b", [] { throw std::runtime_error( "nested" ); } );
      EXPECT_THROW( change( "2" ), std::runtime_error );
      EXPECT_STREQ( changeBeingTold(), "1" );
   } );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "a hears 2", "b hears 2", "b hears 1" ) );
}

TEST_F( PublisherTest, DestroysPublisherAndThrows ) {
   join( "a" );
   join( "b" );
   when( "a", [this] {
      publisher.reset();
      throw std::runtime_error( "and out" );
   } );
   EXPECT_THROW( change( "1" ), std::runtime_error );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
}

TEST_F( PublisherTest, OnlyListenersCountAsSubscribersDuringADispatchToo ) {
   EXPECT_FALSE( publisher->hasSubscribers() );
   join( "a" );
   EXPECT_TRUE( publisher->hasSubscribers() );
   std::vector< bool > seen;
   when( "a", [&] {
      seen.push_back( publisher->hasSubscribers() );
      leave( "a" );
      seen.push_back( publisher->hasSubscribers() );
      change( "to nobody" );
      join( "a" );
      seen.push_back( publisher->hasSubscribers() );
   } );
   change( "1" );
   EXPECT_THAT( seen, ElementsAre( true, false, true ) );
}

TEST_F( PublisherTest, EachDispatchGivesItsOwnValues ) {
   join( "a" );
   std::vector< std::string > values;
   const auto look = [&] { values.push_back( changeBeingTold() ); };
   once( "a", [&] {
      look();
      once( "a", look );
      change( "2" );
      look();
   } );
   look();
   change( "1" );
   look();
   EXPECT_THAT( values, ElementsAre( "none", "1", "2", "1", "none" ) );
}

TEST_F( PublisherTest, ANotificationIsFoundByItsPublisherAndAttribute ) {
   join( "a" );
   Publisher other;
   const int key = 1;
   const Notification *own = nullptr, *othersAttribute = nullptr, *unknown = nullptr;
   Listener overhears( "overhears", story );
   overhears.reaction = [&] {
      own = publisher->notification( kAttribute );
      othersAttribute = other.notification( kAttribute + 1 );
      unknown = other.notification( kAttribute );
      EXPECT_EQ( own->key, &key );
      EXPECT_STREQ( static_cast< const char * >( own->oldValue ), "old" );
      EXPECT_STREQ( static_cast< const char * >( own->newValue ), "new" );
   };
   other.subscriberAdd( overhears.slot );
   when( "a", [&] { other.publishChange( kAttribute + 1, nullptr, nullptr, "else" ); } );
   publisher->publishChange( kAttribute, &key, "old", "new" );
   EXPECT_NE( own, nullptr );
   EXPECT_NE( othersAttribute, nullptr );
   EXPECT_EQ( unknown, nullptr );
}

TEST_F( PublisherTest, APublisherInThePlaceOfADestroyedOneTellsNothingYet ) {
   join( "a" );
   alignas( Publisher ) unsigned char place[sizeof( Publisher )];
   auto * first = ::new ( place ) Publisher;
   Listener replaces( "replaces", story );
   replaces.reaction = [&] {
      first->~Publisher();
      auto * second = ::new ( place ) Publisher;
      EXPECT_EQ( second->notification( kAttribute ), nullptr );
      second->subscriberAdd( replaces.slot );
   };
   first->subscriberAdd( replaces.slot );
   first->publishChange( kAttribute, nullptr, nullptr, "1" );
   EXPECT_THAT( story, ElementsAre( "replaces hears 1" ) );
   std::launder( first )->~Publisher();
}

TEST_F( PublisherTest, ASlotIsSubscribedOnceAtATime ) {
   join( "a" );
   const ThrowingAssertionHandler assertions;
   EXPECT_THROW( join( "a" ), AssertionThrown );
   EXPECT_EQ( assertions.failures().back().condition(), "!slot.subscribed()" );
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
}

TEST_F( PublisherTest, OtherThreadsMayNotTouchAPublisher ) {
   if ( !kDebugChecks ) { GTEST_SKIP() << "built without debug checks"; }
   join( "a" );
   const ThrowingAssertionHandler assertions;
   std::thread( [this] {
      EXPECT_THROW( join( "b" ), AssertionThrown );
      EXPECT_THROW( leave( "a" ), AssertionThrown );
      EXPECT_THROW( change( "1" ), AssertionThrown );
   } ).join();
   EXPECT_EQ( assertions.failures().size(), 3U );
   EXPECT_THAT( story, IsEmpty() );
}

TEST_F( PublisherTest, AnyThreadMayDropAPublisherThatNobodyListensTo ) {
   join( "a" );
   leave( "a" );
   std::thread( [this] { publisher.reset(); } ).join();
}

} // namespace
} // namespace Lumo
