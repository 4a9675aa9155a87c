#include <compare>
#include <functional>
#include <sstream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/Machines.h"

/// The records of state of the twin machines, and the keys under which the backlog machine
/// remembers what it wrote.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// What a publisher told: the attribute and its new value.
using Told = std::vector< std::pair< short, bool > >;

Lumo::Ptr< ActsOnChange > listener( Lumo::Publisher * publisher, Told & told ) {
   return Lumo::makeNode< ActsOnChange >(
      publisher, [&told]( short id, const void *, const void * value ) {
         told.emplace_back( id, *static_cast< const bool * >( value ) );
      } );
}

// Scan state --------------------------------------------------------------------------------------

template< class ScanState >
class InputSmScanStateTest : public testing::Test {};
using ScanStates = testing::Types< IlexCode::CompressedKeyTableSm::InputSmScanState,
                                   IlexCode::PbrCountersBacklogSm::InputSmScanState >;
TYPED_TEST_SUITE( InputSmScanStateTest, ScanStates );

TYPED_TEST( InputSmScanStateTest, StartsWithBothFlagsFalseAndPublishesOnlyChanges ) {
   const auto state = Lumo::makeNode< TypeParam >();
   EXPECT_FALSE( state->inputScan() );
   EXPECT_FALSE( state->idle() );
   Told told;
   const auto listening = listener( state->publisher(), told );
   state->inputScanIs( false );
   state->idleIs( false );
   state->handleIdle();
   EXPECT_THAT( told, IsEmpty() );
   state->inputScanIs( true );
   state->inputScanIs( true );
   state->idleIs( true );
   state->idleIs( true );
   state->inputScanIs( false );
   EXPECT_THAT( told,
                ElementsAre( Pair( TypeParam::kInputScan, true ), Pair( TypeParam::kIdle, true ),
                             Pair( TypeParam::kInputScan, false ) ) );
   EXPECT_FALSE( state->inputScan() );
   EXPECT_TRUE( state->idle() );
}

TYPED_TEST( InputSmScanStateTest, NamesItsAttributesInOrder ) {
   const auto state = Lumo::makeNode< TypeParam >();
   EXPECT_THAT( state->typeData().attributeNames, ElementsAre( "inputScan", "idle" ) );
   EXPECT_TRUE( state->typeData().typeName.ends_with( "Sm::InputSmScanState" ) );
}

// Output state ------------------------------------------------------------------------------------

/// An output state seen as a list of flags.
struct KeyTableOutputs {
   using State = IlexCode::CompressedKeyTableSm::OutputState;
   static Lumo::Ptr< State > make() { return IlexCode::CompressedKeyTableSm::outputStateFactory(); }
   static Lumo::Ptr< State > makeToo() { return IlexCode::CompressedKeyTableSm::OutputStateIs(); }
   using Flag =
      std::tuple< std::string_view, bool ( State::* )() const, void ( State::* )( bool ) >;
   static std::vector< Flag > flags() {
      return { { "shortKeysShortKeyOutputReady", &State::shortKeysShortKeyOutputReady,
                 &State::shortKeysShortKeyOutputReadyIs },
               { "shortKeysNextKeyOutputReady", &State::shortKeysNextKeyOutputReady,
                 &State::shortKeysNextKeyOutputReadyIs } };
   }
};
struct BacklogOutputs {
   using State = IlexCode::PbrCountersBacklogSm::OutputState;
   static Lumo::Ptr< State > make() { return IlexCode::PbrCountersBacklogSm::outputStateFactory(); }
   static Lumo::Ptr< State > makeToo() { return IlexCode::PbrCountersBacklogSm::OutputStateIs(); }
   using Flag =
      std::tuple< std::string_view, bool ( State::* )() const, void ( State::* )( bool ) >;
   static std::vector< Flag > flags() {
      return { { "backlogBacklogOutputReady", &State::backlogBacklogOutputReady,
                 &State::backlogBacklogOutputReadyIs },
               { "shortKeysNovelKeyOutputReady", &State::shortKeysNovelKeyOutputReady,
                 &State::shortKeysNovelKeyOutputReadyIs },
               { "shortKeysNextKeyOutputReady", &State::shortKeysNextKeyOutputReady,
                 &State::shortKeysNextKeyOutputReadyIs },
               { "shortKeysShortKeyOutputReady", &State::shortKeysShortKeyOutputReady,
                 &State::shortKeysShortKeyOutputReadyIs } };
   }
};

template< class Outputs >
class OutputStateTest : public testing::Test {
 protected:
   using State = typename Outputs::State;

   bool flag( std::size_t n ) const { return ( *state.*std::get< 1 >( Outputs::flags()[n] ) )(); }
   void flagIs( std::size_t n, bool value ) {
      ( *state.*std::get< 2 >( Outputs::flags()[n] ) )( value );
   }
   static short id( std::size_t n ) { return static_cast< short >( State::kFirstOutput + n ); }

   const Lumo::Ptr< State > state = Outputs::make();
   const std::size_t outputs = Outputs::flags().size();
   Told told;
   const Lumo::Ptr< ActsOnChange > listening = listener( state->publisher(), told );
};
using BothOutputs = testing::Types< KeyTableOutputs, BacklogOutputs >;
TYPED_TEST_SUITE( OutputStateTest, BothOutputs );

TYPED_TEST( OutputStateTest, StartsWithNothingReady ) {
   EXPECT_FALSE( this->state->ready() );
   for ( std::size_t n = 0; n < this->outputs; ++n ) { EXPECT_FALSE( this->flag( n ) ); }
   EXPECT_FALSE( TypeParam::makeToo()->ready() );
}

TYPED_TEST( OutputStateTest, ReadyIsTheConjunctionOfAllOutputs ) {
   for ( unsigned set = 0; set < ( 1U << this->outputs ); ++set ) {
      for ( std::size_t n = 0; n < this->outputs; ++n ) {
         this->flagIs( n, ( set >> n ) & 1 );
         EXPECT_EQ( this->flag( n ), ( ( set >> n ) & 1 ) != 0 );
      }
      EXPECT_EQ( this->state->ready(), set == ( 1U << this->outputs ) - 1 ) << set;
   }
}

TYPED_TEST( OutputStateTest, ReadyIsPublishedBeforeTheOutputThatCompletesOrBreaksIt ) {
   for ( std::size_t n = 1; n < this->outputs; ++n ) { this->flagIs( n, true ); }
   this->told.clear();
   this->flagIs( 0, true );
   this->flagIs( 0, true );
   EXPECT_THAT( this->told, ElementsAre( Pair( TestFixture::State::kReady, true ),
                                         Pair( this->id( 0 ), true ) ) );
   this->told.clear();
   this->flagIs( 1, false );
   EXPECT_THAT( this->told, ElementsAre( Pair( TestFixture::State::kReady, false ),
                                         Pair( this->id( 1 ), false ) ) );
   this->told.clear();
   this->flagIs( 0, false );
   EXPECT_THAT( this->told, ElementsAre( Pair( this->id( 0 ), false ) ) );
}

TYPED_TEST( OutputStateTest, ReadyIsStoredBeforeAnythingIsPublished ) {
   for ( std::size_t n = 1; n < this->outputs; ++n ) { this->flagIs( n, true ); }
   bool consistent = true;
   const auto probe = Lumo::makeNode< ActsOnChange >(
      this->state->publisher(), [&]( short, const void *, const void * ) {
         consistent = consistent && this->state->ready() && this->flag( 0 );
      } );
   this->flagIs( 0, true );
   EXPECT_TRUE( consistent );
}

TYPED_TEST( OutputStateTest, ReadySetDirectlyIsPublishedAndRecomputedByItsHandler ) {
   this->state->readyIs( true );
   this->state->readyIs( true );
   EXPECT_TRUE( this->state->ready() );
   this->state->handleReady();
   this->state->handleReady();
   EXPECT_FALSE( this->state->ready() );
   EXPECT_THAT( this->told, ElementsAre( Pair( TestFixture::State::kReady, true ),
                                         Pair( TestFixture::State::kReady, false ) ) );
}

TYPED_TEST( OutputStateTest, TheListenerMayDropTheRecord ) {
   Lumo::Ptr< typename TypeParam::State > last = TypeParam::make();
   const auto dropper = Lumo::makeNode< ActsOnChange >(
      last->publisher(), [&]( short, const void *, const void * ) { last = nullptr; } );
   const auto set = std::get< 2 >( TypeParam::flags()[0] );
   ( *last.*set )( true );
   EXPECT_FALSE( last );
}

TYPED_TEST( OutputStateTest, NamesItsAttributesInOrder ) {
   std::vector< std::string_view > expected;
   for ( const auto & flag : TypeParam::flags() ) { expected.push_back( std::get< 0 >( flag ) ); }
   expected.push_back( "ready" );
   EXPECT_THAT( this->state->typeData().attributeNames, testing::ElementsAreArray( expected ) );
}

// Keys of what was written ------------------------------------------------------------------------

template< class Key >
class OutputKeyTest : public testing::Test {};
using Keys = testing::Types< IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType,
                             IlexCode::PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType >;
TYPED_TEST_SUITE( OutputKeyTest, Keys );

TYPED_TEST( OutputKeyTest, IsValidWhenItIsMadeFromAShortKey ) {
   EXPECT_TRUE( TypeParam( 5 ).k0Valid() );
   EXPECT_EQ( TypeParam( 5 ).k0(), 5U );
   TypeParam key;
   EXPECT_FALSE( key.k0Valid() );
   EXPECT_EQ( key.k0(), 0U );
   key.validate();
   EXPECT_TRUE( key.k0Valid() );
   EXPECT_EQ( key, TypeParam( 0 ) );
}

TYPED_TEST( OutputKeyTest, IsEqualWhenBothFieldsAre ) {
   const TypeParam invalid;
   const TypeParam zero( 0 );
   const TypeParam zeroToo( 0 );
   const TypeParam one( 1 );
   EXPECT_TRUE( TypeParam::isEq( &zero, &zeroToo ) );
   EXPECT_FALSE( TypeParam::isEq( &zero, &invalid ) );
   EXPECT_FALSE( TypeParam::isEq( &zero, &one ) );
}

TYPED_TEST( OutputKeyTest, OrdersByShortKeyThenByValidity ) {
   const TypeParam invalid;
   EXPECT_TRUE( ( invalid <=> TypeParam( 0 ) ) == std::strong_ordering::less );
   EXPECT_TRUE( ( TypeParam( 0 ) <=> TypeParam( 1 ) ) == std::strong_ordering::less );
   EXPECT_TRUE( ( invalid <=> TypeParam( 1 ) ) == std::strong_ordering::less );
   EXPECT_TRUE( ( TypeParam( 7 ) <=> TypeParam( 7 ) ) == std::strong_ordering::equal );
   EXPECT_TRUE( ( TypeParam( ~0ULL ) <=> TypeParam( 1 ) ) == std::strong_ordering::greater );
}

TYPED_TEST( OutputKeyTest, HashesBothFieldsAndTheSeed ) {
   EXPECT_EQ( TypeParam( 7 ).hash( 1 ), TypeParam( 7 ).hash( 1 ) );
   EXPECT_NE( TypeParam( 7 ).hash( 1 ), TypeParam( 7 ).hash( 2 ) );
   EXPECT_NE( TypeParam( 7 ).hash( 1 ), TypeParam( 8 ).hash( 1 ) );
   EXPECT_NE( TypeParam( 0 ).hash( 1 ), TypeParam().hash( 1 ) );
}

TYPED_TEST( OutputKeyTest, ItsTextFormNamesBothFieldsAndIsReadBack ) {
   const auto text = []( const TypeParam & key ) {
      std::ostringstream os;
      os << key;
      return os.str();
   };
   EXPECT_THAT( text( TypeParam( 42 ) ), testing::HasSubstr( "{'k0': 42, 'k0Valid': True}" ) );
   EXPECT_THAT( text( TypeParam() ), testing::HasSubstr( "{'k0': 0, 'k0Valid': False}" ) );
   for ( const TypeParam & key : { TypeParam(), TypeParam( 42 ), TypeParam( ~0ULL ) } ) {
      EXPECT_EQ( TypeParam::strepToValue( text( key ) ), key );
   }
   EXPECT_THROW( TypeParam::strepToValue( "" ), Quon::ParseError );
   EXPECT_THROW( TypeParam::strepToValue( text( TypeParam( 1 ) ) + " " ), Quon::ParseError );
}

TEST( OutputKeyTypes, AreDifferentTypesWithDifferentNames ) {
   using Backlog = IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType;
   using Novel = IlexCode::PbrCountersBacklogSm::ShortKeysNovelKeyOutputKeyType;
   static_assert( !std::is_same_v< Backlog, Novel > );
   EXPECT_TRUE( Backlog::kTypeName.ends_with( "::BacklogBacklogOutputKeyType" ) );
   EXPECT_TRUE( Novel::kTypeName.ends_with( "::ShortKeysNovelKeyOutputKeyType" ) );
}

} // namespace
} // namespace VeloSdkRpc::test
