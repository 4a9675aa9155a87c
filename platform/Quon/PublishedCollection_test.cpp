#include "Quon/PublishedCollection.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Lumo.h"
#include "Quon/NotifyValues.h"

namespace Quon::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Item final : public Entity {
 public:
   explicit Item( int n ) : number( n ) { ++living; }
   ~Item() override { --living; }
   const TypeData & typeData() const override {
      static constexpr TypeData type{ "Test::Item", {} };
      return type;
   }

   const int number;
   static inline int living = 0;
};
using ItemPtr = Lumo::Ptr< const Item >;

class Shelf final : public PublishingEntity {
 public:
   static constexpr short kItems = 5;

   Shelf() { ++living; }
   ~Shelf() override { --living; }
   const TypeData & typeData() const override {
      static constexpr TypeData type{ "Test::Shelf", {} };
      return type;
   }

   PublishedCollection< kItems, Lumo::String, Item > items{ *this };
   static inline int living = 0;
};

/// Writes down every change that it is told, after it has done its mischief.
class Watcher {
 public:
   explicit Watcher( const Shelf & shelf ) { shelf.publisher()->subscriberAdd( slot_ ); }

   bool isZombie() const { return false; }

   /// "KEY: OLD to NEW" for each change.
   std::vector< std::string > told;
   /// What it does when it is told of a change of this key, before it writes it down.
   std::function< void( const Lumo::String & key ) > mischief;

 private:
   static std::string print( const ItemPtr * item ) {
      if ( !item ) { return "nothing"; }
      return *item ? std::to_string( ( *item )->number ) : "null";
   }

   void changed( Lumo::Publisher * publisher, Lumo::Subscriber *, short attributeId,
                 const void * key, const void * value ) {
      ASSERT_EQ( attributeId, Shelf::kItems );
      const auto & name = *static_cast< const Lumo::String * >( key );
      const auto [previous, current] =
         Impl::getNotifyValues( *publisher, Shelf::kItems, std::type_identity< ItemPtr >() );
      EXPECT_EQ( value, current );
      if ( mischief ) { mischief( name ); }
      told.push_back( fmt::format( "{}: {} to {}", name, print( previous ), print( current ) ) );
   }

   Lumo::MemberSubscriber< Watcher, &Watcher::changed > slot_{ this };
};

/// Keys too long to live in place: a dangling one is found by the sanitizers.
const Lumo::String kA = "the class that is called a", kB = "the class that is called b",
                   kC = "the class that is called c";

class PublishedCollectionTest : public testing::Test {
 protected:
   ~PublishedCollectionTest() override {
      shelf = nullptr;
      EXPECT_EQ( Item::living, 0 );
      EXPECT_EQ( Shelf::living, 0 );
   }

   static ItemPtr item( int number ) { return Lumo::makeNode< Item >( number ); }
   void put( const Lumo::String & key, int number ) {
      shelf->items.memberIs( key, item( number ) );
   }
   void putAll() {
      put( kA, 1 );
      put( kB, 2 );
      put( kC, 3 );
      watcher.told.clear();
   }
   static std::string line( const Lumo::String & key, const char * change ) {
      return fmt::format( "{}: {}", key, change );
   }
   std::size_t size() const { return shelf->items.members().size(); }

   Lumo::Ptr< Shelf > shelf = Lumo::makeNode< Shelf >();
   Watcher watcher{ *shelf };
};

TEST_F( PublishedCollectionTest, EveryChangeIsToldOnceWithOldAndNewValue ) {
   put( kA, 1 );
   put( kA, 2 );
   shelf->items.memberDel( kA );
   EXPECT_THAT( watcher.told, ElementsAre( line( kA, "nothing to 1" ), line( kA, "1 to 2" ),
                                           line( kA, "2 to nothing" ) ) );
}

TEST_F( PublishedCollectionTest, StoringTheSamePointerAgainIsNotTold ) {
   const ItemPtr same = item( 1 );
   shelf->items.memberIs( kA, same );
   shelf->items.memberIs( kA, same );
   EXPECT_THAT( watcher.told, ElementsAre( line( kA, "nothing to 1" ) ) );
}

TEST_F( PublishedCollectionTest, ANullPointerIsAValue ) {
   shelf->items.memberIs( kA, nullptr );
   EXPECT_TRUE( shelf->items.members().lookup( kA ) );
   EXPECT_EQ( shelf->items.memberMutable( kA ), nullptr );
   shelf->items.memberIs( kA, nullptr );
   put( kA, 1 );
   shelf->items.memberIs( kA, nullptr );
   shelf->items.memberDel( kA );
   EXPECT_THAT( watcher.told,
                ElementsAre( line( kA, "nothing to null" ), line( kA, "null to 1" ),
                             line( kA, "1 to null" ), line( kA, "null to nothing" ) ) );
}

TEST_F( PublishedCollectionTest, DeletingAnAbsentKeyIsNotTold ) {
   shelf->items.memberDel( kA );
   shelf->items.memberDelAll();
   EXPECT_THAT( watcher.told, IsEmpty() );
}

TEST_F( PublishedCollectionTest, DeletingAllTellsEachKey ) {
   putAll();
   shelf->items.memberDelAll();
   EXPECT_THAT( watcher.told,
                UnorderedElementsAre( line( kA, "1 to nothing" ), line( kB, "2 to nothing" ),
                                      line( kC, "3 to nothing" ) ) );
   EXPECT_EQ( size(), 0U );
}

TEST_F( PublishedCollectionTest, TheWriterGetsTheEntityToChangeIt ) {
   put( kA, 1 );
   EXPECT_EQ( shelf->items.memberMutable( kA )->number, 1 );
   EXPECT_EQ( shelf->items.memberMutable( kB ), nullptr );
}

TEST_F( PublishedCollectionTest, TheChangeIsCompleteWhenItIsTold ) {
   std::vector< std::size_t > sizes;
   watcher.mischief = [&]( const Lumo::String & ) { sizes.push_back( size() ); };
   put( kA, 1 );
   put( kB, 2 );
   shelf->items.memberDelAll();
   EXPECT_THAT( sizes, ElementsAre( 1U, 2U, 1U, 0U ) );
}

TEST_F( PublishedCollectionTest, ADisrupterMayDeleteTheElementThatItIsToldOf ) {
   watcher.mischief = [this]( const Lumo::String & key ) {
      watcher.mischief = nullptr;
      shelf->items.memberDel( key );
   };
   put( kA, 1 );
   // The nested change is written down first; the outer one still has its key and values.
   EXPECT_THAT( watcher.told,
                ElementsAre( line( kA, "1 to nothing" ), line( kA, "nothing to 1" ) ) );
   EXPECT_EQ( size(), 0U );
}

TEST_F( PublishedCollectionTest, ADisrupterMayReplaceTheElementThatItIsToldOf ) {
   put( kA, 1 );
   watcher.mischief = [this]( const Lumo::String & key ) {
      watcher.mischief = nullptr;
      put( key, 3 );
   };
   put( kA, 2 );
   EXPECT_EQ( shelf->items.memberMutable( kA )->number, 3 );
   EXPECT_THAT( watcher.told, ElementsAre( line( kA, "nothing to 1" ), line( kA, "2 to 3" ),
                                           line( kA, "1 to 2" ) ) );
}

TEST_F( PublishedCollectionTest, TheElementsOwnKeyMayBeHandedIn ) {
   putAll();
   shelf->items.memberDel( shelf->items.members().lookup( kA )->fwkKey() );
   EXPECT_THAT( watcher.told, ElementsAre( line( kA, "1 to nothing" ) ) );
}

TEST_F( PublishedCollectionTest, ASubscriberMayLetGoOfTheOwner ) {
   for ( const auto & change : std::vector< std::function< void( Shelf & ) > >{
            []( Shelf & s ) { s.items.memberIs( kA, item( 9 ) ); },
            []( Shelf & s ) { s.items.memberIs( kB, item( 9 ) ); },
            []( Shelf & s ) { s.items.memberDel( kB ); } } ) {
      shelf = Lumo::makeNode< Shelf >();
      put( kB, 1 );
      Watcher last( *shelf );
      last.mischief = [this]( const Lumo::String & ) { shelf = nullptr; };
      change( *shelf );
      EXPECT_EQ( last.told.size(), 1U );
      EXPECT_EQ( Shelf::living, 0 );
   }
}

TEST_F( PublishedCollectionTest, DeletingAllGoesOnWhenASubscriberLetsGoOfTheOwner ) {
   putAll();
   watcher.mischief = [this]( const Lumo::String & ) { shelf = nullptr; };
   shelf->items.memberDelAll();
   EXPECT_EQ( watcher.told.size(), 3U );
   EXPECT_EQ( Shelf::living, 0 );
}

TEST_F( PublishedCollectionTest, AWalkDeletesWhereItStandsAndTellsIt ) {
   putAll();
   std::vector< std::string > expected;
   for ( auto at = shelf->items.members().iterator(); at; shelf->items.memberDel( at ) ) {
      expected.push_back( line( at.key(), "" ) + std::to_string( at.value()->number ) +
                          " to nothing" );
   }
   EXPECT_EQ( watcher.told, expected );
   EXPECT_EQ( size(), 0U );
}

TEST_F( PublishedCollectionTest, AWalkThatDeletesWhereItStandsGoesOnBehindASubscriberThatThrows ) {
   putAll();
   watcher.mischief = []( const Lumo::String & ) { throw std::runtime_error( "subscriber" ); };
   int thrown = 0;
   for ( auto at = shelf->items.members().iterator(); at; ++thrown ) {
      EXPECT_THROW( shelf->items.memberDel( at ), std::runtime_error );
   }
   EXPECT_EQ( thrown, 3 );
   EXPECT_EQ( size(), 0U );
}

TEST_F( PublishedCollectionTest, NobodyNeedListenToAWalkThatDeletesWhereItStands ) {
   const auto unseen = Lumo::makeNode< Shelf >();
   for ( const auto & key : { kA, kB, kC } ) { unseen->items.memberIs( key, item( 1 ) ); }
   int left = 3;
   for ( auto at = unseen->items.members().iterator(); at; ) {
      unseen->items.memberDel( at );
      EXPECT_EQ( Item::living, --left );
   }
   EXPECT_EQ( left, 0 );
}

TEST_F( PublishedCollectionTest, AWalkThatDeletesWhatWasPutBackTellsWhatWasPutBack ) {
   putAll();
   auto at = shelf->items.members().iterator();
   const Lumo::String key = at.key();
   shelf->items.memberDel( key );
   put( key, 9 );
   watcher.told.clear();
   shelf->items.memberDel( at );
   EXPECT_EQ( watcher.told, std::vector{ line( key, "9 to nothing" ) } );
   EXPECT_EQ( size(), 2U );
}

TEST_F( PublishedCollectionTest, WhatIsUnwantedIsDeletedUnseenOrNotAtAll ) {
   putAll();
   const auto isUnwanted = []( const Lumo::String & key ) { return key != kB; };
   EXPECT_FALSE( shelf->items.memberDelUnseen( isUnwanted ) ) << "somebody would see it";
   EXPECT_EQ( size(), 3U );
   const auto unseen = Lumo::makeNode< Shelf >();
   for ( const auto & key : { kA, kB, kC } ) { unseen->items.memberIs( key, item( 1 ) ); }
   EXPECT_TRUE( unseen->items.memberDelUnseen( isUnwanted ) );
   EXPECT_EQ( unseen->items.members().size(), 1U );
   EXPECT_TRUE( unseen->items.members().lookup( kB ) );
}

TEST_F( PublishedCollectionTest, ASubscriberMayLetGoOfTheOwnerDuringAWalkThatDeletes ) {
   putAll();
   watcher.mischief = [this]( const Lumo::String & ) { shelf = nullptr; };
   auto at = shelf->items.members().iterator();
   shelf->items.memberDel( at );
   EXPECT_FALSE( at );
   EXPECT_EQ( Shelf::living, 0 );
   EXPECT_EQ( watcher.told.size(), 1U );
}

TEST_F( PublishedCollectionTest, AKeyPutBackWhileAllAreDeletedStays ) {
   putAll();
   watcher.mischief = [this]( const Lumo::String & key ) {
      watcher.mischief = nullptr;
      put( key, 7 );
   };
   shelf->items.memberDelAll();
   EXPECT_EQ( size(), 1U );
   EXPECT_EQ( watcher.told.size(), 4U );
}

TEST_F( PublishedCollectionTest, TheChangeStandsWhenASubscriberThrows ) {
   putAll();
   watcher.mischief = []( const Lumo::String & ) { throw std::runtime_error( "subscriber" ); };
   EXPECT_THROW( shelf->items.memberDel( kA ), std::runtime_error );
   EXPECT_EQ( size(), 2U );
   EXPECT_THROW( shelf->items.memberDelAll(), std::runtime_error );
   EXPECT_EQ( size(), 1U );
   watcher.mischief = nullptr;
   shelf->items.memberDelAll();
   EXPECT_EQ( size(), 0U );
   EXPECT_EQ( watcher.told.size(), 1U );
}

} // namespace
} // namespace Quon::test
