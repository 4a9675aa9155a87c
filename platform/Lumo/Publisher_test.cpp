#include <string>
#include <thread>
#include <vector>

#include "Lumo/PublisherTestFixture.h"
#include "Lumo/ThrowingAssertionHandler.h"

namespace Lumo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

TEST_F( PublisherTest, ASubscriptionIsWantedOrNotHoweverOftenThatIsSaid ) {
   join( "a" );
   Subscriber & slot = listeners["a"]->slot;
   for ( const bool wanted : { true, false, false, true, true } ) {
      subscriptionIs( publisher.get(), slot, wanted );
      EXPECT_EQ( slot.subscribed(), wanted );
   }
   change( "1" );
   EXPECT_THAT( story, ElementsAre( "a hears 1" ) );
}

TEST_F( PublisherTest, WhereThereIsNothingToListenToNothingIsSubscribed ) {
   Listener listener( "a", story );
   subscriptionIs( nullptr, listener.slot, true );
   EXPECT_FALSE( listener.slot.subscribed() );
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
