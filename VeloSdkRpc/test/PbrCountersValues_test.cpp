#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/PbrCountersBacklog.h"

namespace VeloSdkRpc::test {
namespace {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapKey;

template< class T >
std::string text( const T & value ) {
   std::ostringstream os;
   os << value;
   return os.str();
}

template< class T >
T parsed( const std::string & text ) {
   Quon::CharRange cursor( text );
   T value( cursor );
   cursor.expectEnd();
   return value;
}

PbrCountersKey key( const char * policy, const char * name, const char * aclRule = "" ) {
   return PbrCountersKey( PolicyMapKey( policy ), name, aclRule );
}

// The long key ------------------------------------------------------------------------------------

TEST( PbrCountersKeyTest, ADefaultKeyIsFalse ) { EXPECT_FALSE( PbrCountersKey() ); }

TEST( PbrCountersKeyTest, AKeyThatDiffersFromTheDefaultInAnyOneFieldIsTrue ) {
   EXPECT_TRUE( key( "p", "" ) );
   EXPECT_TRUE( key( "", "n" ) );
   EXPECT_TRUE( key( "", "", "r" ) );
}

TEST( PbrCountersKeyTest, EqualityTestsAllThreeFields ) {
   const PbrCountersKey a = key( "p", "n", "r" );
   EXPECT_TRUE( PbrCountersKey::isEq( &a, &a ) );
   EXPECT_EQ( a, key( "p", "n", "r" ) );
   EXPECT_NE( a, key( "q", "n", "r" ) );
   EXPECT_NE( a, key( "p", "m", "r" ) );
   EXPECT_NE( a, key( "p", "n", "s" ) );
}

TEST( PbrCountersKeyTest, TheOrderIsByPolicyKeyThenNameThenAclRuleByteWise ) {
   EXPECT_LT( key( "a", "z", "z" ), key( "b", "a", "a" ) );
   EXPECT_LT( key( "a", "a", "z" ), key( "a", "b", "a" ) );
   EXPECT_LT( key( "a", "a", "a" ), key( "a", "a", "b" ) );
   EXPECT_LT( key( "a", "a", "z" ), key( "a", "a", "\xff" ) );
   EXPECT_LT( key( "a", "a", "" ), key( "a", "a", "a" ) );
   const PbrCountersKey same = key( "a", "b", "c" );
   EXPECT_EQ( same <=> same, std::strong_ordering::equal );
   EXPECT_EQ( same <=> key( "a", "b", "c" ), std::strong_ordering::equal );
}

TEST( PbrCountersKeyTest, KeysThatDifferOnlyInTheAclRuleHashDifferently ) {
   EXPECT_NE( key( "p", "n", "r" ).hash( 1 ), key( "p", "n", "s" ).hash( 1 ) );
   EXPECT_NE( key( "p", "n", "r" ).hash( 1 ), key( "p", "n" ).hash( 1 ) );
}

TEST( PbrCountersKeyTest, TheHashDependsOnTheSeedAndOnWhichFieldHoldsAText ) {
   EXPECT_EQ( key( "p", "n", "r" ).hash( 1 ), key( "p", "n", "r" ).hash( 1 ) );
   EXPECT_NE( key( "p", "n", "r" ).hash( 1 ), key( "p", "n", "r" ).hash( 2 ) );
   EXPECT_NE( key( "x", "y", "" ).hash( 1 ), key( "y", "x", "" ).hash( 1 ) );
   EXPECT_NE( key( "p", "x", "y" ).hash( 1 ), key( "p", "y", "x" ).hash( 1 ) );
}

TEST( PbrCountersKeyTest, KeysThatDifferOnlyInThePolicyMapOrTheNameHashDifferently ) {
   EXPECT_NE( key( "p", "n", "r" ).hash( 1 ), key( "q", "n", "r" ).hash( 1 ) );
   EXPECT_NE( key( "p", "n", "r" ).hash( 1 ), key( "p", "m", "r" ).hash( 1 ) );
}

TEST( PbrCountersKeyTest, AProbeEqualsTheKeyOfItsClassWithoutAnAclRuleAndNoOther ) {
   const PolicyMapKey policy( "p" );
   const Lumo::String name( "n" );
   const PbrCountersKeyProbe probe{ policy, name };
   EXPECT_TRUE( key( "p", "n" ) == probe );
   EXPECT_FALSE( key( "q", "n" ) == probe );
   EXPECT_FALSE( key( "p", "m" ) == probe );
   EXPECT_FALSE( key( "p", "n", "r" ) == probe );
}

TEST( PbrCountersKeyTest, ItsTextFormNamesTheAttributesInOrderAndIsReadBack ) {
   const PbrCountersKey it = key( "edge", "it's\n", "r" );
   EXPECT_EQ( text( it ), "Value('VeloSdkRpc::PbrCountersKey', ** {"
                          "'policyKey': Value('PolicyMap::Counters::PolicyMapKey', ** "
                          "{'name': 'edge'}), 'name': 'it\\'s\\n', 'aclRule': 'r'})" );
   EXPECT_EQ( parsed< PbrCountersKey >( text( it ) ), it );
   EXPECT_EQ( fmt::format( "{}", it ), text( it ) );
}

TEST( PbrCountersKeyTest, AParseErrorNamesTheAttributePathAndThePosition ) {
   const std::string broken = "Value('VeloSdkRpc::PbrCountersKey', ** {'policyKey': "
                              "Value('PolicyMap::Counters::PolicyMapKey', ** {'name': 7";
   try {
      parsed< PbrCountersKey >( broken );
      FAIL() << "parsed";
   } catch ( const Quon::ParseError & error ) {
      EXPECT_EQ( error.path(), "policyKey.name" );
      EXPECT_EQ( error.position(), broken.size() - 1 );
   }
}

TEST( PbrCountersKeyTest, ItIsThreeWords ) { EXPECT_EQ( sizeof( PbrCountersKey ), 24U ); }

// The record --------------------------------------------------------------------------------------

class PbrCountersTest : public testing::Test {
 protected:
   static PbrCounters::Data counters( std::uint64_t packets = 1 ) {
      return Lumo::makeNode< CountersData >( "web", CountData( packets, 10 * packets ) );
   }
   const PbrCounters::Data data = counters();
   const PbrCounters record{ 7, key( "p", "n" ), data, false };
};

TEST_F( PbrCountersTest, ADefaultRecordIsFalseAndHasNothing ) {
   const PbrCounters none;
   EXPECT_FALSE( none );
   EXPECT_EQ( none.shortKey(), 0U );
   EXPECT_EQ( none.longKey(), PbrCountersKey() );
   EXPECT_EQ( none.data(), nullptr );
   EXPECT_FALSE( none.deletedKey() );
}

TEST_F( PbrCountersTest, ARecordThatDiffersFromTheDefaultInAnyOneFieldIsTrue ) {
   EXPECT_TRUE( PbrCounters( 1, {}, nullptr, false ) );
   EXPECT_TRUE( PbrCounters( 0, key( "", "", "r" ), nullptr, false ) );
   EXPECT_TRUE( PbrCounters( 0, {}, data, false ) );
   EXPECT_TRUE( PbrCounters( 0, {}, nullptr, true ) );
}

TEST_F( PbrCountersTest, EqualityTestsEveryField ) {
   EXPECT_EQ( record, PbrCounters( 7, key( "p", "n" ), data, false ) );
   EXPECT_NE( record, PbrCounters( 8, key( "p", "n" ), data, false ) );
   EXPECT_NE( record, PbrCounters( 7, key( "p", "m" ), data, false ) );
   EXPECT_NE( record, PbrCounters( 7, key( "p", "n" ), nullptr, false ) );
   EXPECT_NE( record, PbrCounters( 7, key( "p", "n" ), data, true ) );
}

TEST_F( PbrCountersTest, RecordsOfDistinctEntitiesWithEqualContentsAreNotEqual ) {
   EXPECT_NE( record, PbrCounters( 7, key( "p", "n" ), counters(), false ) );
}

TEST_F( PbrCountersTest, ACopyTakesOneReferenceOnTheDataAndDropsItAgain ) {
   const auto before = data->references();
   {
      const PbrCounters copy = record;
      EXPECT_EQ( data->references(), before + 1 );
   }
   EXPECT_EQ( data->references(), before );
}

TEST_F( PbrCountersTest, ItsTextFormNestsTheKeyAndGivesTheDataAsASequence ) {
   EXPECT_EQ(
      text( record ),
      "Value('VeloSdkRpc::PbrCounters', ** {'shortKey': 7, 'longKey': " + text( key( "p", "n" ) ) +
         ", 'data': Value('PolicyMap::Counters::CountersData', * ['web', "
         "Value('PolicyMap::Counters::CountData', ** {'packets': 1, 'bytes': 10})]), "
         "'deletedKey': False})" );
   EXPECT_THAT( text( PbrCounters( 7, {}, nullptr, true ) ),
                testing::EndsWith( "'data': None, 'deletedKey': True})" ) );
}

TEST_F( PbrCountersTest, ReadBackTheRecordHasAnEntityOfItsOwnWithTheSameContents ) {
   const auto again = parsed< PbrCounters >( text( record ) );
   EXPECT_EQ( again.shortKey(), 7U );
   EXPECT_EQ( again.longKey(), record.longKey() );
   ASSERT_TRUE( again.data() );
   EXPECT_NE( again.data(), data );
   EXPECT_EQ( again.data()->countData(), data->countData() );
   EXPECT_EQ( again.data()->references(), 1U );
   EXPECT_EQ( text( again ), text( record ) );
}

TEST_F( PbrCountersTest, ErrorsInNestedAttributesCarryTheNamesOfLongKeyAndData ) {
   const auto pathOf = []( std::string broken ) {
      try {
         parsed< PbrCounters >( broken );
      } catch ( const Quon::ParseError & error ) { return std::string( error.path() ); }
      return std::string( "parsed" );
   };
   std::string good = text( record );
   EXPECT_EQ( pathOf( good.substr( 0, good.find( "'name': 'n'" ) + 8 ) ), "longKey.name" );
   EXPECT_EQ( pathOf( good.substr( 0, good.find( "'web'" ) ) ), "data.name" );
}

TEST_F( PbrCountersTest, AnErrorBehindTheDataLeavesNoEntityBehind ) {
   std::string broken = text( record );
   broken.replace( broken.find( "'deletedKey': False" ), 19, "'deletedKey': maybe" );
   // The leak check of the sanitizer build is what would see one.
   try {
      parsed< PbrCounters >( broken );
      FAIL() << "parsed";
   } catch ( const Quon::ParseError & error ) { EXPECT_EQ( error.path(), "deletedKey" ); }
}

// Images ------------------------------------------------------------------------------------------

class PbrCountersImageTest : public PbrCountersTest {
 protected:
   Frell::Manager manager;
   PbrCounters::Image image{};
};

TEST_F( PbrCountersImageTest, ARecordIsReadBackFromItsImageWithTheSameEntity ) {
   record.frell_shmemify( &image, &manager );
   EXPECT_EQ( PbrCounters( &image, manager ), record );
   PbrCounters().frell_shmemify( &image, &manager );
}

TEST_F( PbrCountersImageTest, AnImageHoldsOneReferenceAndDropsTheOneItHeldBefore ) {
   const auto before = data->references();
   record.frell_shmemify( &image, &manager );
   EXPECT_EQ( data->references(), before + 1 );
   record.frell_shmemify( &image, &manager );
   EXPECT_EQ( data->references(), before + 1 );
   PbrCounters( 7, key( "p", "n" ), nullptr, true ).frell_shmemify( &image, &manager );
   EXPECT_EQ( data->references(), before );
   EXPECT_TRUE( PbrCounters( &image, manager ).deletedKey() );
   PbrCounters().frell_shmemify( &image, &manager );
}

TEST_F( PbrCountersImageTest, AKeyIsReadBackFromItsImage ) {
   PbrCountersKey::Image keyImage{};
   const PbrCountersKey it = key( "a policy map of many letters", "n", "a rule of many letters" );
   it.frell_shmemify( &keyImage, &manager );
   EXPECT_EQ( PbrCountersKey( &keyImage, manager ), it );
   PbrCountersKey().frell_shmemify( &keyImage, &manager );
   EXPECT_EQ( PbrCountersKey( &keyImage, manager ), PbrCountersKey() );
}

TEST_F( PbrCountersImageTest, RestartOnlyForwardsToThePolicyKeyAndKeepsTheValue ) {
   record.frell_shmemify( &image, &manager );
   Frell::WMgr< QuonFrell::EntityBase > writer( manager );
   QuonFrell::imageRestart< PbrCounters >( &image, writer );
   EXPECT_EQ( writer.valuesTakenOver(), 1U );
   EXPECT_EQ( PbrCounters( &image, manager ), record );
   PbrCounters().frell_shmemify( &image, &manager );
}

TEST_F( PbrCountersImageTest, RestartOfAKeyAloneTakesOverItsPolicyKeyOnce ) {
   PbrCountersKey::Image keyImage{};
   const PbrCountersKey it = key( "p", "n", "r" );
   it.frell_shmemify( &keyImage, &manager );
   Frell::WMgr< QuonFrell::EntityBase > writer( manager );
   QuonFrell::imageRestart< PbrCountersKey >( &keyImage, writer );
   EXPECT_EQ( writer.valuesTakenOver(), 1U );
   EXPECT_EQ( PbrCountersKey( &keyImage, manager ), it );
   PbrCountersKey().frell_shmemify( &keyImage, &manager );
}

// The flags ---------------------------------------------------------------------------------------

TEST( PbrCountersEncodingFlagsTest, TheDefaultIsZero ) {
   EXPECT_EQ( PbrCountersEncodingFlags().value(), 0 );
   EXPECT_FALSE( PbrCountersEncodingFlags() );
}

TEST( PbrCountersEncodingFlagsTest, BitZeroIsEncodeLongKeyAndBitOneIsDeleteKey ) {
   EXPECT_TRUE( PbrCountersEncodingFlags( 1 ).encodeLongKey() );
   EXPECT_FALSE( PbrCountersEncodingFlags( 1 ).deleteKey() );
   EXPECT_FALSE( PbrCountersEncodingFlags( 2 ).encodeLongKey() );
   EXPECT_TRUE( PbrCountersEncodingFlags( 2 ).deleteKey() );
   EXPECT_TRUE( PbrCountersEncodingFlags( 3 ).encodeLongKey() );
   EXPECT_TRUE( PbrCountersEncodingFlags( 3 ).deleteKey() );
   EXPECT_TRUE( PbrCountersEncodingFlags( 2 ) );
}

TEST( PbrCountersEncodingFlagsTest, AnAttributeIsSetAndClearedWithoutTouchingTheOther ) {
   PbrCountersEncodingFlags flags;
   flags.deleteKeyIs( true );
   flags.encodeLongKeyIs( true );
   EXPECT_EQ( flags.value(), 3 );
   flags.deleteKeyIs( false );
   EXPECT_EQ( flags.value(), 1 );
}

TEST( PbrCountersEncodingFlagsTest, AByteAboveThreeIsRefusedWithTheRangeException ) {
   EXPECT_THROW( PbrCountersEncodingFlags( 4 ), Quon::DenseEnumBoolSetRangeException );
   EXPECT_THROW( PbrCountersEncodingFlags( 255 ), Quon::RangeException );
}

TEST( PbrCountersEncodingFlagsTest, TheTextFormIsTheLiteralOne ) {
   EXPECT_EQ( text( PbrCountersEncodingFlags() ),
              "Value('VeloSdkRpc::PbrCountersEncodingFlags', ** {'encodeLongKey': False, "
              "'deleteKey': False})" );
   EXPECT_EQ( fmt::format( "{}", PbrCountersEncodingFlags( 3 ) ),
              "Value('VeloSdkRpc::PbrCountersEncodingFlags', ** {'encodeLongKey': True, "
              "'deleteKey': True})" );
}

TEST( PbrCountersEncodingFlagsTest, EveryValueIsReadBackFromItsText ) {
   for ( std::uint8_t value = 0; value <= 3; ++value ) {
      const PbrCountersEncodingFlags flags( value );
      EXPECT_EQ( parsed< PbrCountersEncodingFlags >( text( flags ) ), flags );
   }
}

TEST( PbrCountersEncodingFlagsTest, AMissingLiteralOrABadBoolIsAParseError ) {
   for ( const char * broken :
         { "", "Value('VeloSdkRpc::PbrCountersEncodingFlags', ** {'encodeLongKey': True",
           "Value('VeloSdkRpc::PbrCountersEncodingFlags', ** {'encodeLongKey': 1, "
           "'deleteKey': False})",
           "Value('VeloSdkRpc::PbrCountersKey', ** {'encodeLongKey': True, 'deleteKey': "
           "True})" } ) {
      EXPECT_THROW( parsed< PbrCountersEncodingFlags >( broken ), Quon::ParseError ) << broken;
   }
}

// The table ---------------------------------------------------------------------------------------

class KeyCompressionTableTest : public testing::Test {
 protected:
   const Lumo::Ptr< PbrCountersKeyCompressionTable > table = PbrCountersKeyCompressionTableIs();
   const PbrCountersKey k = key( "p", "n" );
};

TEST_F( KeyCompressionTableTest, ANewTableIsEmptyAndHasHandedOutNothing ) {
   EXPECT_TRUE( table->shortKey().empty() );
   EXPECT_TRUE( table->novelKey().empty() );
   EXPECT_EQ( table->nextKey(), 0U );
   EXPECT_EQ( table->references(), 1U );
}

TEST_F( KeyCompressionTableTest, ItNamesItsAttributesInOrder ) {
   EXPECT_EQ( table->typeData().typeName, "VeloSdkRpc::PbrCountersKeyCompressionTable" );
   EXPECT_THAT( table->typeData().attributeNames,
                testing::ElementsAre( "shortKey", "nextKey", "novelKey" ) );
}

TEST_F( KeyCompressionTableTest, BothFactoriesMakeANewTable ) {
   for ( const auto factory :
         { &pbrCountersKeyCompressionTableFactory, &PbrCountersKeyCompressionTableIs } ) {
      const auto made = factory();
      EXPECT_EQ( made->nextKey(), 0U );
      EXPECT_EQ( made->references(), 1U );
      EXPECT_NE( made, factory() );
   }
}

TEST_F( KeyCompressionTableTest, AskingForNoveltyConsumesIt ) {
   table->novelKeyIs( 7 );
   EXPECT_TRUE( table->isNovelKey( 7 ) );
   EXPECT_FALSE( table->isNovelKey( 7 ) );
}

TEST_F( KeyCompressionTableTest, EnteringANovelKeyTwiceIsEnteringItOnce ) {
   table->novelKeyIs( 7 );
   table->novelKeyIs( 7 );
   EXPECT_EQ( table->novelKey().size(), 1U );
   EXPECT_TRUE( table->isNovelKey( 7 ) );
   EXPECT_FALSE( table->isNovelKey( 7 ) );
}

TEST_F( KeyCompressionTableTest, AShortKeyIsOverwrittenAndHandedBackOnDeletion ) {
   table->shortKeyIs( k, 5 );
   table->shortKeyIs( k, 9 );
   EXPECT_EQ( table->shortKey().size(), 1U );
   EXPECT_EQ( table->shortKey()[k]->value(), 9U );
   EXPECT_EQ( table->shortKeyDel( k ), 9U );
   EXPECT_EQ( table->shortKeyDel( k ), 0U );
   EXPECT_EQ( table->shortKey()[k], nullptr );
}

TEST_F( KeyCompressionTableTest, KeysThatDifferOnlyInTheAclRuleAreTwoEntries ) {
   table->shortKeyIs( key( "p", "n" ), 1 );
   table->shortKeyIs( key( "p", "n", "r" ), 2 );
   EXPECT_EQ( table->shortKey().size(), 2U );
}

TEST_F( KeyCompressionTableTest, NextKeyIncReturnsTheValueAfterTheIncrementAndWraps ) {
   EXPECT_EQ( table->nextKeyInc( 1 ), 1U );
   EXPECT_EQ( table->nextKey(), 1U );
   table->nextKeyIs( ~std::uint64_t{ 0 } );
   EXPECT_EQ( table->nextKeyInc( 2 ), 1U );
}

TEST_F( KeyCompressionTableTest, ClearingTheNovelKeysLeavesEverythingElse ) {
   table->shortKeyIs( k, 5 );
   table->nextKeyIs( 5 );
   table->novelKeyIs( 5 );
   table->clearNovelKeys();
   EXPECT_TRUE( table->novelKey().empty() );
   EXPECT_EQ( table->shortKey().size(), 1U );
   EXPECT_EQ( table->nextKey(), 5U );
}

TEST_F( KeyCompressionTableTest, DeletingWhatIsNotThereIsHarmless ) {
   table->novelKeyDel( 3 );
   table->novelKeyDelAll();
   table->shortKeyDelAll();
   EXPECT_EQ( table->shortKeyDel( k ), 0U );
}

} // namespace
} // namespace VeloSdkRpc::test
