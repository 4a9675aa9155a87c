#include "Quon/Dir.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Lumo.h"
#include "Quon/EntityTypes.h"
#include "Quon/EntityWatcher.h"
#include "Quon/Exceptions.h"
#include "Quon/StringAttribute.h"

namespace Quon::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

class Plain final : public Entity {
 public:
   static constexpr std::string_view kTypeName = "Test::Plain";
   const TypeData & typeData() const override {
      static constexpr TypeData type{ kTypeName, {} };
      return type;
   }
};

TEST( EntityTypes, AreMadeByNameWhileTheyAreRegistered ) {
   EXPECT_FALSE( entityTypeExists( "Test::Plain" ) );
   {
      const EntityTypeRegistration< Plain > registered;
      EXPECT_TRUE( entityTypeExists( "Test::Plain" ) );
      const auto one = createEntity( "Test::Plain" ), other = createEntity( "Test::Plain" );
      EXPECT_TRUE( entityCast< Plain >( one ) );
      EXPECT_NE( one, other );
   }
   EXPECT_THAT(
      [] { createEntity( "Test::Plain" ); },
      ThrowsMessage< EntityTypeException >( "there is no entity type called \"Test::Plain\"" ) );
}

TEST( EntityTypesDeathTest, TwoOfOneNameAreABug ) {
   const EntityTypeRegistration< Plain > registered;
   EXPECT_DEATH( EntityTypeRegistration< Plain >(),
                 "there are two entity types called Test::Plain" );
}

class DirTest : public testing::Test {
 protected:
   DirTest() {
      watcher.then = [this]( const Lumo::Notification & change ) {
         const auto name = static_cast< const Lumo::String * >( change.key )->view();
         told.push_back( ( change.newValue ? "+" : "-" ) + std::string( name ) );
         if ( then ) { then(); }
      };
   }

   std::string refusalOf( const Lumo::String & type, const Lumo::String & name ) {
      try {
         dir->createEntity( type, name );
      } catch ( const std::exception & error ) {
         EXPECT_THAT( told, IsEmpty() );
         return error.what();
      }
      return "not refused";
   }

   const EntityTypeRegistration< Plain > registered;
   Lumo::Ptr< Dir > dir = Lumo::makeNode< Dir >();
   EntityWatcher watcher{ *dir };
   std::vector< std::string > told;
   std::function< void() > then;
};

TEST_F( DirTest, AnEntityIsMadeOnceAndThenReturned ) {
   const auto made = dir->createEntity( "Test::Plain", "a" );
   EXPECT_TRUE( entityCast< Plain >( made ) );
   EXPECT_EQ( dir->createEntity( "Test::Plain", "a" ), made );
   EXPECT_NE( dir->createEntity( "Test::Plain", "b" ), made );
   EXPECT_EQ( dir->entity().lookup( Lumo::String( "a" ) )->value(), made );
   EXPECT_THAT( told, ElementsAre( "+a", "+b" ) );
}

TEST_F( DirTest, ADirectoryMayBeInADirectory ) {
   const auto inner = entityCast< Dir >( dir->createEntity( "Quon::Dir", "inner" ) );
   ASSERT_TRUE( inner );
   EXPECT_TRUE( inner->createEntity( "Test::Plain", "a" ) );
   EXPECT_EQ( dir->entity().size(), 1U );
}

TEST_F( DirTest, AnEntityIsMadeAnewAfterItWasDeleted ) {
   const auto first = dir->createEntity( "Test::Plain", "a" );
   dir->entityDel( "a" );
   dir->entityDel( "a" );
   EXPECT_EQ( dir->entity().size(), 0U );
   EXPECT_NE( dir->createEntity( "Test::Plain", "a" ), first );
   EXPECT_THAT( told, ElementsAre( "+a", "-a", "+a" ) );
}

TEST_F( DirTest, AnEntityThatIsThereIsHandedOutWhateverTypeIsAskedFor ) {
   const auto plain = dir->createEntity( "Test::Plain", "a" );
   told.clear();
   EXPECT_EQ( dir->createEntity( "Quon::Dir", "a" ), plain );
   EXPECT_EQ( dir->createEntity( "Test::Plan", "a" ), plain ) << "nothing is to be made";
   EXPECT_THAT( told, IsEmpty() );
}

TEST_F( DirTest, ATypeThatDoesNotExistIsRefused ) {
   EXPECT_EQ( refusalOf( "Test::Plan", "a" ), "there is no entity type called \"Test::Plan\"" );
   EXPECT_EQ( dir->entity().size(), 0U );
}

TEST_F( DirTest, ANameIsOneStepOfAPath ) {
   EXPECT_EQ( refusalOf( "Test::Plain", "" ),
              "\"\" cannot be one step of a path: it must have one character at "
              "least, and no slash" );
   EXPECT_EQ( refusalOf( "Test::Plain", "a/b" ),
              "\"a/b\" cannot be one step of a path: it must have one character "
              "at least, and no slash" );
   EXPECT_THROW(
      dir->createEntity( "Test::Plain", Lumo::String( std::string( kMaxStringLength + 1, 'a' ) ) ),
      RangeException );
   EXPECT_EQ( dir->entity().size(), 0U );
}

TEST_F( DirTest, ASubscriberMayDeleteWhatIsBeingMadeAndLetGoOfTheDirectory ) {
   then = [this] {
      if ( !dir ) { return; }
      dir->entityDel( "a" );
      dir = nullptr;
   };
   Dir * const creating = dir.get();
   EXPECT_TRUE( entityCast< Plain >( creating->createEntity( "Test::Plain", "a" ) ) );
   EXPECT_THAT( told, ElementsAre( "+a", "-a" ) );
}

TEST_F( DirTest, KnowsItsType ) {
   EXPECT_EQ( dir->typeData().typeName, "Quon::Dir" );
   EXPECT_THAT( dir->typeData().attributeNames, ElementsAre( "entity" ) );
}

} // namespace
} // namespace Quon::test
