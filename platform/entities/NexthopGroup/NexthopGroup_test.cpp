#include "NexthopGroup/NexthopGroup.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/Quon.h"

namespace NexthopGroup::test {
namespace {

using testing::ElementsAre;

/// Writes down every change of the map: "ID: 'OLD' to 'NEW'".
class Watcher {
 public:
   explicit Watcher( const NexthopGroupMap & map ) { map.publisher()->subscriberAdd( slot_ ); }
   bool isZombie() const { return false; }

   std::vector< std::string > told;

 private:
   void changed( Lumo::Publisher * publisher, Lumo::Subscriber *, short attributeId,
                 const void * key, const void * ) {
      ASSERT_EQ( attributeId, NexthopGroupMap::kNexthopGroupName );
      const auto [previous, current] = Quon::Impl::getNotifyValues(
         *publisher, attributeId, std::type_identity< Lumo::String >() );
      const auto print = []( const Lumo::String * name ) {
         return name ? Quon::text( *name ) : "nothing";
      };
      told.push_back( fmt::format(
         "{}: {} to {}", *static_cast< const Routing::NexthopGroup::NexthopGroupId * >( key ),
         print( previous ), print( current ) ) );
   }

   Lumo::MemberSubscriber< Watcher, &Watcher::changed > slot_{ this };
};

class NexthopGroupMapTest : public testing::Test {
 protected:
   const Lumo::Ptr< NexthopGroupMap > map = Lumo::makeNode< NexthopGroupMap >();
   Watcher watcher{ *map };
};

TEST_F( NexthopGroupMapTest, TellsEveryChangeOfAName ) {
   map->nexthopGroupNameIs( 7, "" );
   map->nexthopGroupNameIs( 7, "spine" );
   map->nexthopGroupNameIs( 7, "leaf" );
   map->nexthopGroupNameIs( 7, "leaf" );
   EXPECT_EQ( map->nexthopGroupName()[7]->value(), "leaf" );
   map->nexthopGroupNameDel( 7 );
   map->nexthopGroupNameDel( 7 );
   EXPECT_FALSE( map->nexthopGroupName()[7] );
   EXPECT_THAT( watcher.told, ElementsAre( "7: nothing to ''", "7: '' to 'spine'",
                                           "7: 'spine' to 'leaf'", "7: 'leaf' to nothing" ) );
}

TEST_F( NexthopGroupMapTest, LosesAllItsNamesOneByOne ) {
   map->nexthopGroupNameIs( 1, "spine" );
   map->nexthopGroupNameIs( 0xffffffff, "leaf" );
   watcher.told.clear();
   map->nexthopGroupNameDelAll();
   EXPECT_THAT( watcher.told, testing::UnorderedElementsAre( "1: 'spine' to nothing",
                                                             "4294967295: 'leaf' to nothing" ) );
   EXPECT_TRUE( map->nexthopGroupName().empty() );
}

TEST_F( NexthopGroupMapTest, RefusesANameThatIsTooLong ) {
   EXPECT_THROW( map->nexthopGroupNameIs( 7, std::string( Quon::kMaxStringLength + 1, 'x' ) ),
                 Quon::RangeException );
   EXPECT_TRUE( map->nexthopGroupName().empty() );
}

TEST_F( NexthopGroupMapTest, KnowsItsType ) {
   EXPECT_EQ( map->typeData().typeName, "NexthopGroup::NexthopGroupMap" );
   EXPECT_THAT( map->typeData().attributeNames, ElementsAre( "nexthopGroupName" ) );
}

} // namespace
} // namespace NexthopGroup::test
