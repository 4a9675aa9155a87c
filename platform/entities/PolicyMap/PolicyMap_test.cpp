#include "PolicyMap/PolicyMap.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "Quon/EntityWatcher.h"
#include "Quon/Quon.h"

namespace PolicyMap::Counters::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const Lumo::String kTooLong = std::string( Quon::kMaxStringLength + 1, 'x' );

TEST( PolicyMapKeyTest, IsOneWord ) { EXPECT_EQ( sizeof( PolicyMapKey ), 8U ); }

TEST( PolicyMapKeyTest, IsOrderedAndComparedByName ) {
   EXPECT_EQ( PolicyMapKey( "edge" ), PolicyMapKey( "edge" ) );
   EXPECT_NE( PolicyMapKey( "edge" ), PolicyMapKey() );
   EXPECT_LT( PolicyMapKey( "core" ), PolicyMapKey( "edge" ) );
   EXPECT_LT( PolicyMapKey( "edge" ), PolicyMapKey( "edge of the network" ) );
   EXPECT_LT( PolicyMapKey( "z" ), PolicyMapKey( "\xff" ) );
}

TEST( PolicyMapKeyTest, HashesByNameAndSeed ) {
   EXPECT_EQ( PolicyMapKey( "edge" ).hash( 1 ), PolicyMapKey( "edge" ).hash( 1 ) );
   EXPECT_NE( PolicyMapKey( "edge" ).hash( 1 ), PolicyMapKey( "edge" ).hash( 2 ) );
   EXPECT_NE( PolicyMapKey( "edge" ).hash( 1 ), PolicyMapKey( "core" ).hash( 1 ) );
}

TEST( PolicyMapKeyTest, HasATextForm ) {
   const PolicyMapKey key( "edge" );
   const std::string text = "Value('PolicyMap::Counters::PolicyMapKey', ** {'name': 'edge'})";
   EXPECT_EQ( fmt::format( "{}", key ), text );
   EXPECT_EQ( testing::PrintToString( key ), text );
   Quon::CharRange range( text );
   EXPECT_EQ( PolicyMapKey( range ), key );
}

TEST( PolicyMapKeyTest, RefusesANameThatIsTooLong ) {
   EXPECT_THROW( PolicyMapKey{ kTooLong }, Quon::RangeException );
   const auto tooLong =
      fmt::format( "Value('PolicyMap::Counters::PolicyMapKey', ** {{'name': '{}'}})", kTooLong );
   EXPECT_THROW( Quon::fromText< PolicyMapKey >( tooLong ), Quon::ParseError );
}

TEST( PolicyMapKeyTest, ComesBackFromItsImage ) {
   Frell::Manager manager;
   PolicyMapKey::Image image{};
   EXPECT_EQ( QuonFrell::imageValue< PolicyMapKey >( &image, manager ), PolicyMapKey() );
   for ( const char * name : { "edge", "a policy map of a longer name" } ) {
      PolicyMapKey( name ).frell_shmemify( &image, &manager );
      EXPECT_EQ( QuonFrell::imageValue< PolicyMapKey >( &image, manager ), PolicyMapKey( name ) );
   }
   Frell::WMgr< QuonFrell::EntityBase > writer( manager );
   QuonFrell::imageRestart< PolicyMapKey >( &image, writer );
   EXPECT_EQ( writer.valuesTakenOver(), 1U );
   QuonFrell::imageClear< PolicyMapKey >( &image, manager );
   EXPECT_EQ( manager.stringsHeld(), 0U );
}

TEST( PolicyMapKeyTest, AnImageThatRefersToALongerStringIsCorrupt ) {
   Frell::Manager manager;
   PolicyMapKey::Image image{};
   manager.stringIs( image.name, kTooLong );
   EXPECT_THROW( QuonFrell::imageValue< PolicyMapKey >( &image, manager ), Frell::CorruptImage );
}

using Watcher = Quon::test::EntityWatcher;

class CountersDataTest : public testing::Test {
 protected:
   Lumo::Ptr< CountersData > data = Lumo::makeNode< CountersData >( "gold" );
   Watcher watcher{ *data };
};

TEST_F( CountersDataTest, PublishesItsCountersOnlyWhenTheyChange ) {
   data->countDataIs( CountData( 1, 100 ) );
   data->countDataIs( CountData( 1, 100 ) );
   data->countDataIs( data->countData() );
   EXPECT_THAT( watcher.told, ElementsAre( CountersData::kCountData ) );
   EXPECT_EQ( data->countData(), CountData( 1, 100 ) );
}

TEST_F( CountersDataTest, ShowsOldAndNewCountersWhileItTells ) {
   watcher.then = []( const Lumo::Notification & change ) {
      const auto [previous, current] = Quon::Impl::getNotifyValues(
         *change.publisher, CountersData::kCountData, std::type_identity< CountData >() );
      EXPECT_EQ( *previous, CountData() );
      EXPECT_EQ( *current, CountData( 1, 100 ) );
   };
   data->countDataIs( CountData( 1, 100 ) );
   EXPECT_EQ( watcher.told.size(), 1U );
}

TEST_F( CountersDataTest, ASubscriberMayLetGoOfItOrCountOn ) {
   watcher.then = [this]( const Lumo::Notification & ) {
      if ( watcher.told.size() == 1 ) {
         data->countDataIs( CountData( 2, 200 ) );
      } else {
         data = nullptr;
      }
   };
   data->countDataIs( CountData( 1, 100 ) );
   EXPECT_EQ( watcher.told.size(), 2U );
}

TEST_F( CountersDataTest, KeepsTheNewCountersWhenASubscriberThrows ) {
   watcher.then = []( const Lumo::Notification & ) { throw std::runtime_error( "subscriber" ); };
   EXPECT_THROW( data->countDataIs( CountData( 1, 100 ) ), std::runtime_error );
   EXPECT_EQ( data->countData(), CountData( 1, 100 ) );
}

TEST_F( CountersDataTest, HasASequenceTextForm ) {
   data->countDataIs( CountData( 1, 100 ) );
   const std::string text =
      "Value('PolicyMap::Counters::CountersData', * ['gold', "
      "Value('PolicyMap::Counters::CountData', ** {'packets': 1, 'bytes': 100})])";
   EXPECT_EQ( Quon::text( *data ), text );
   const auto back = Quon::fromText< Lumo::Ptr< const CountersData > >( text );
   EXPECT_EQ( back->name(), "gold" );
   EXPECT_EQ( back->countData(), CountData( 1, 100 ) );
}

TEST_F( CountersDataTest, KnowsItsType ) {
   EXPECT_EQ( data->typeData().typeName, "PolicyMap::Counters::CountersData" );
   EXPECT_THAT( data->typeData().attributeNames, ElementsAre( "name", "countData" ) );
}

class CountersTreeTest : public testing::Test {
 protected:
   const Lumo::Ptr< PolicyMapTypeCounters > root = Lumo::makeNode< PolicyMapTypeCounters >();
   const Lumo::Ptr< PolicyMapCounters > edge =
      Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( "edge" ) );
   const Lumo::Ptr< CountersData > gold = Lumo::makeNode< CountersData >( "gold" );
   Watcher rootWatcher{ *root }, edgeWatcher{ *edge };
};

TEST_F( CountersTreeTest, PolicyMapsAndClassesAreFoundByKeyAndName ) {
   root->policyMapCountersIs( edge->key(), edge );
   edge->classCountersIs( "gold", gold );
   EXPECT_EQ( root->policyMapCounters().lookup( PolicyMapKey( "edge" ) )->value(), edge );
   EXPECT_EQ( root->policyMapCountersMutable( PolicyMapKey( "edge" ) ), edge.get() );
   EXPECT_EQ( root->policyMapCountersMutable( PolicyMapKey( "core" ) ), nullptr );
   EXPECT_EQ( edge->classCounters().lookup( gold->name() )->value(), gold );
   EXPECT_EQ( edge->classCountersMutable( "gold" ), gold.get() );
   EXPECT_EQ( edge->classCountersMutable( "silver" ), nullptr );
}

TEST_F( CountersTreeTest, EachLevelPublishesItsOwnCollection ) {
   root->policyMapCountersIs( edge->key(), edge );
   edge->classCountersIs( "gold", gold );
   edge->classCountersIs( "silver", nullptr );
   edge->classCountersDel( "gold" );
   edge->classCountersDelAll();
   root->policyMapCountersDel( edge->key() );
   root->policyMapCountersIs( edge->key(), nullptr );
   root->policyMapCountersDelAll();
   EXPECT_EQ( edgeWatcher.told, std::vector< short >( 4, PolicyMapCounters::kClassCounters ) );
   EXPECT_EQ( rootWatcher.told,
              std::vector< short >( 4, PolicyMapTypeCounters::kPolicyMapCounters ) );
}

TEST_F( CountersTreeTest, AClassNameThatIsTooLongIsRefusedAndNothingChanges ) {
   EXPECT_THROW( edge->classCountersIs( kTooLong, nullptr ), Quon::RangeException );
   EXPECT_EQ( edge->classCounters().size(), 0U );
   EXPECT_TRUE( edgeWatcher.told.empty() );
   EXPECT_THROW( CountersData{ kTooLong }, Quon::RangeException );
}

TEST_F( CountersTreeTest, AnEntityUnderAnotherKeyThanItsOwnIsABug ) {
   const Lumo::ThrowingAssertionHandler handler;
   EXPECT_THROW( edge->classCountersIs( "silver", gold ), Lumo::AssertionThrown );
   EXPECT_THROW( root->policyMapCountersIs( PolicyMapKey( "core" ), edge ), Lumo::AssertionThrown );
}

TEST_F( CountersTreeTest, EntitiesKnowTheirTypes ) {
   EXPECT_EQ( edge->typeData().typeName, "PolicyMap::Counters::PolicyMapCounters" );
   EXPECT_THAT( edge->typeData().attributeNames, ElementsAre( "key", "classCounters" ) );
   EXPECT_EQ( root->typeData().typeName, "PolicyMap::Counters::PolicyMapTypeCounters" );
   EXPECT_THAT( root->typeData().attributeNames, ElementsAre( "policyMapCounters" ) );
}

} // namespace
} // namespace PolicyMap::Counters::test
