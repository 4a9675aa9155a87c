// The index of parked routes: its entries, the collection of them, and the look into it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector< std::uint32_t > labelsOf( const FecIdToMplsRouteKeySet & entry ) {
   std::vector< std::uint32_t > all;
   for ( const auto & node : entry.mplsRouteKeySet() ) { all.push_back( node.fwkKey().label() ); }
   return all;
}

// An entry ----------------------------------------------------------------------------------------

class FecIdToMplsRouteKeySetTest : public testing::Test {
 protected:
   static void putAll( FecIdToMplsRouteKeySet & entry, std::uint32_t first, std::uint32_t last ) {
      for ( auto n = first; n <= last; ++n ) { entry.mplsRouteKeySetIs( RouteKey( n ) ); }
   }

   const Lumo::Ptr< FecIdToMplsRouteKeySet > entry =
      Lumo::makeNode< FecIdToMplsRouteKeySet >( FecId( 7 ) );
};

TEST_F( FecIdToMplsRouteKeySetTest, IsBornWithOneReferenceItsFecAndNoKeys ) {
   EXPECT_EQ( entry->references(), 1U );
   EXPECT_EQ( entry->fecId(), FecId( 7 ) );
   EXPECT_TRUE( entry->mplsRouteKeySet().empty() );
   EXPECT_FALSE( entry->publisher() );
}

TEST_F( FecIdToMplsRouteKeySetTest, HoldsEveryKeyOnce ) {
   entry->mplsRouteKeySetIs( RouteKey( 16 ) );
   entry->mplsRouteKeySetIs( RouteKey( 17 ) );
   entry->mplsRouteKeySetIs( RouteKey( 16 ) );
   EXPECT_THAT( labelsOf( *entry ), UnorderedElementsAre( 16, 17 ) );
}

TEST_F( FecIdToMplsRouteKeySetTest, LosesKeysAndDoesNotMindAbsentOnes ) {
   putAll( *entry, 16, 18 );
   entry->mplsRouteKeySetDel( RouteKey( 17 ) );
   entry->mplsRouteKeySetDel( RouteKey( 17 ) );
   EXPECT_THAT( labelsOf( *entry ), UnorderedElementsAre( 16, 18 ) );
   entry->mplsRouteKeySetDelAll();
   entry->mplsRouteKeySetDelAll();
   EXPECT_THAT( labelsOf( *entry ), IsEmpty() );
}

TEST_F( FecIdToMplsRouteKeySetTest, LosesWhatIsBeforeAKeyAndTheKey ) {
   putAll( *entry, 1, 200 );
   const auto inOrder = labelsOf( *entry );
   auto at = entry->mplsRouteKeySet().iterator();
   for ( int n = 0; n < 120; ++n ) { at.advance(); }
   entry->mplsRouteKeySetDelUpToAndIncluding( at.key() );
   EXPECT_EQ( labelsOf( *entry ), std::vector( inOrder.begin() + 121, inOrder.end() ) );
}

TEST_F( FecIdToMplsRouteKeySetTest, TakesTheKeysOfAnotherAndTheAgeOfTheOlder ) {
   const auto other = Lumo::makeNode< FecIdToMplsRouteKeySet >( FecId( 7 ) );
   putAll( *entry, 16, 18 );
   putAll( *other, 18, 19 );
   entry->ageIs( 5 );
   other->ageIs( 3 );
   entry->mplsRouteKeySetMerge( *other );
   EXPECT_THAT( labelsOf( *entry ), UnorderedElementsAre( 16, 17, 18, 19 ) );
   EXPECT_THAT( labelsOf( *other ), IsEmpty() );
   EXPECT_EQ( entry->age(), 3U );
   other->ageIs( 9 );
   entry->mplsRouteKeySetMerge( *other );
   EXPECT_EQ( entry->age(), 3U );
}

TEST_F( FecIdToMplsRouteKeySetTest, KnowsItsType ) {
   EXPECT_EQ( entry->typeData().typeName, "VeloSdkRpc::FecIdToMplsRouteKeySet" );
   EXPECT_THAT( entry->typeData().attributeNames, ElementsAre( "fecId", "mplsRouteKeySet" ) );
}

// The collection of them --------------------------------------------------------------------------

class MplsIndexTest : public MplsSmFixture {
 protected:
   static inline const FecId a = MplsState::fec( 1 ), b = MplsState::fec( 2 );

   static Sm::ParkedRoutes waiting( MplsState::Group group, std::size_t count ) {
      return { MplsState::fec( group ), count };
   }
};

TEST_F( MplsIndexTest, IsEmptyAtFirst ) {
   EXPECT_TRUE( nothingParked() );
   EXPECT_FALSE( sm->fecIdToMplsRouteKeySet( a ) );
   EXPECT_TRUE( nothingParked() ); // Looking makes no entry.
}

TEST_F( MplsIndexTest, ReturnsTheSameEntryForTheSameFec ) {
   const auto entry = sm->fecIdToMplsRouteKeySetIs( a );
   EXPECT_EQ( entry->fecId(), a );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySetIs( a ), entry );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySet( a ), entry );
   EXPECT_NE( sm->fecIdToMplsRouteKeySetIs( b ), entry );
   EXPECT_EQ( entry->references(), 2U );
}

TEST_F( MplsIndexTest, AnEntryThatIsRemovedLivesAsLongAsSomebodyHoldsIt ) {
   const auto entry = sm->fecIdToMplsRouteKeySetIs( a );
   entry->mplsRouteKeySetIs( RouteKey( 16 ) );
   sm->fecIdToMplsRouteKeySetDel( a );
   EXPECT_EQ( entry->references(), 1U );
   EXPECT_THAT( labelsOf( *entry ), ElementsAre( 16 ) );
   EXPECT_NE( sm->fecIdToMplsRouteKeySetIs( a ), entry );
}

TEST_F( MplsIndexTest, RemovingHandsOutTheEntryAndDoesNotMindThatThereIsNone ) {
   EXPECT_FALSE( sm->fecIdToMplsRouteKeySetDel( a ) );
   const auto entry = sm->fecIdToMplsRouteKeySetIs( a );
   EXPECT_FALSE( sm->fecIdToMplsRouteKeySetDel( b ) );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySetDel( a ), entry );
   EXPECT_FALSE( sm->fecIdToMplsRouteKeySetDel( a ) );
}

TEST_F( MplsIndexTest, LosesAllEntriesAtOnce ) {
   const auto entry = sm->fecIdToMplsRouteKeySetIs( a );
   sm->fecIdToMplsRouteKeySetIs( b );
   sm->fecIdToMplsRouteKeySetDelAll();
   EXPECT_TRUE( nothingParked() );
   EXPECT_EQ( entry->references(), 1U );
}

// The look into it --------------------------------------------------------------------------------

TEST_F( MplsIndexTest, ShowsHowManyWaitUnderEachFecTheOldestFirst ) {
   state.put( 16, 9 );
   state.put( 17, 3 );
   state.put( 18, 9 );
   state.put( 19, 5 );
   EXPECT_THAT( sm->parkedRoutes(),
                ElementsAre( waiting( 9, 2 ), waiting( 3, 1 ), waiting( 5, 1 ) ) );
   state.name( 9, "spine" );
   state.unname( 9 );
   state.put( 16, 9, 2 );
   EXPECT_THAT( sm->parkedRoutes(),
                ElementsAre( waiting( 3, 1 ), waiting( 5, 1 ), waiting( 9, 1 ) ) );
}

TEST_F( MplsIndexTest, ALookChangesNothing ) {
   EXPECT_THAT( sm->parkedRoutes(), IsEmpty() );
   state.put( 16, 9 );
   const auto entry = sm->fecIdToMplsRouteKeySet( MplsState::fec( 9 ) );
   const auto version = sm->fecIdToMplsRouteKeySet().version();
   const auto references = entry->references();
   EXPECT_EQ( sm->parkedRoutes(), sm->parkedRoutes() );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySet().version(), version );
   EXPECT_EQ( entry->references(), references );
   state.name( 9, "spine" );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
