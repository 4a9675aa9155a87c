// A dispatch survives whatever its listeners do meanwhile.

#include <cstddef>
#include <new>
#include <stdexcept>

#include "Lumo/PublisherTestFixture.h"

namespace Lumo {
namespace {

using testing::ElementsAre;

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

TEST_F( PublisherTest, TheOnlyListenerAddsAnotherAndLeaves ) {
   join( "a" );
   once( "a", [this] {
      join( "b" );
      leave( "a" );
   } );
   change( "1" );
   change( "2" );
   EXPECT_THAT( story, ElementsAre( "a hears 1", "b hears 2" ) );
}

TEST_F( PublisherTest, APublisherInThePlaceOfOneThatItsOnlyListenerDestroyedTellsNothing ) {
   alignas( Publisher ) std::byte place[sizeof( Publisher )];
   auto * first = new ( place ) Publisher;
   publisher.reset();
   bool asked = false;
   listeners["a"] = std::make_unique< Listener >( "a", story );
   first->subscriberAdd( listeners["a"]->slot );
   when( "a", [&] {
      first->subscriberRemove( listeners["a"]->slot );
      first->~Publisher();
      auto * second = new ( place ) Publisher;
      EXPECT_EQ( second->notification( kAttribute ), nullptr );
      asked = true;
      second->~Publisher();
   } );
   first->publishChange( kAttribute, nullptr, nullptr, "1" );
   EXPECT_TRUE( asked );
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

} // namespace
} // namespace Lumo
