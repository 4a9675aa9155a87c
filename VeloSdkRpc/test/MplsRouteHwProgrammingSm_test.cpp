// What the machine tells, parks and drops, what it traces, and how it lives. What clients may do to
// it while they are told is in MplsRouteHwProgrammingSm_reentry_test.cpp.

#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// The fixture with a record of everything that is traced: "LEVEL FUNCTION: TEXT".
class MplsSmTest : public MplsSmFixture {
 protected:
   /// What was traced since the last time.
   std::vector< std::string > traced() {
      std::vector< std::string > lines;
      for ( const auto & message : std::exchange( traces.messages, {} ) ) {
         EXPECT_EQ( message.handle, "MplsRouteHwProgrammingSm" );
         lines.push_back(
            fmt::format( "{} {}: {}", message.level, message.function, message.text ) );
      }
      return lines;
   }
   void forget() {
      traces.messages.clear();
      client.told.clear();
   }

   // The lines of one reaction, in the order of its steps.
   static inline const std::string kHandleRoute =
      "7 handleMplsRoute: void VeloSdkRpc::MplsRouteHwProgrammingSm::handleMplsRoute(const "
      "Mpls::RouteKey&)";
   static inline const std::string kDuplicate =
      "8 handleMplsRoute: Skip publishing a duplicate event for integrated MPLS-NHG callback";
   static inline const std::string kProcess16 =
      "7 processRoute: void VeloSdkRpc::MplsRouteHwProgrammingSm::processRoute(const "
      "Mpls::RouteKey&)Value('Mpls::RouteKey', ** {'label': 16})";
   static inline const std::string kNoSuchRoute16 =
      "8 processRoute: MPLS route key: Value('Mpls::RouteKey', ** {'label': 16}) doesn't exist";
   static inline const std::string kPublish16 =
      "8 processRoute: Publish MPLS route key: Value('Mpls::RouteKey', ** {'label': 16})";
   static inline const std::string kNonVersionedGroup =
      "8 isICBSupported: MPLS route points to a non-versioned NHG";
   static inline const std::string kNoName = "8 doesNhgExist: NHG mapping is not presented yet";
   static inline const std::string kHandleGroup =
      "7 handleNexthopGroupStatus: void "
      "VeloSdkRpc::MplsRouteHwProgrammingSm::handleNexthopGroupStatus("
      "Routing::NexthopGroup::NexthopGroupId)";
   static inline const std::string kGroup7 = "8 handleNexthopGroupStatus: Processing NHG ID: 7";
   static std::string notVersioned( const Route & route ) {
      return fmt::format( "8 isICBSupported: MPLS route is not versioned or unprogrammed{}",
                          route );
   }
   static std::string noGroup( const FecId & fecId ) {
      return fmt::format( "8 isICBSupported: MPLS route points to {} is not NHG adjacency", fecId );
   }

   static Route route16( const FecId & fecId, std::uint32_t version, std::uint32_t groupVersion,
                         std::uint8_t ack = 0, std::uint8_t programmingState = 0 ) {
      return Route( RouteKey( 16 ), AckInfo( fecId, version, groupVersion, ack ),
                    programmingState );
   }
   static FecId fecOfType( std::uint64_t type ) { return FecId( type << 56 | 7 ); }

   Lumo::CapturingTraceSink traces{ "MplsRouteHwProgrammingSm" };
};

// What is told ------------------------------------------------------------------------------------

TEST_F( MplsSmTest, ARouteOverANamedGroupIsTold ) {
   state.name( 7, "spine" );
   forget();
   state.put( 16, 7 );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7 ) ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kPublish16 ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, ARouteOverAGroupWithoutANameWaitsForIt ) {
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kNoName ) );
   EXPECT_TRUE( isParked( 16, 7 ) );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7 ) ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7, kProcess16, kPublish16 ) );
   EXPECT_TRUE( nothingParked() );
   state.name( 7, "leaf" );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7 ) );
}

TEST_F( MplsSmTest, AnEmptyNameIsNone ) {
   state.name( 7, "" );
   forget();
   state.put( 16, 7 );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kNoName ) );
   EXPECT_TRUE( isParked( 16, 7 ) );
}

TEST_F( MplsSmTest, ARouteThatWaitsTwiceIsToldOnceAsItIsThen ) {
   state.put( 16, 7, 1 );
   state.put( 16, 7, 2 );
   EXPECT_EQ( parked( 7 ), 1U );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7, 2 ) ) );
}

TEST_F( MplsSmTest, ANameReleasesWhatWaitsForThatGroupAndTouchesNothingElse ) {
   for ( std::uint32_t n = 0; n < 1000; ++n ) { state.put( 100 + n, 1000 + n % 10 ); }
   for ( std::uint32_t label : { 16, 17, 18 } ) { state.put( label, 7 ); }
   forget();
   state.name( 7, "spine" );
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18 ) );
   EXPECT_THAT( traced(), SizeIs( 2 + 3 * 2 ) );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySet().size(), 10U );
   EXPECT_EQ( parked( 1000 ), 100U );
}

TEST_F( MplsSmTest, RoutesAreReleasedInTheOrderOfTheirSet ) {
   for ( std::uint32_t label = 16; label < 116; ++label ) { state.put( label, 7 ); }
   std::vector< std::uint32_t > inOrder;
   for ( const auto & node :
         sm->fecIdToMplsRouteKeySet( MplsState::fec( 7 ) )->mplsRouteKeySet() ) {
      inOrder.push_back( node.fwkKey().label() );
   }
   state.name( 7, "spine" );
   EXPECT_EQ( client.labels(), inOrder );
}

TEST_F( MplsSmTest, TheClientOwnsTheRouteThatItIsGiven ) {
   state.name( 7, "spine" );
   atFirst( [this]( const Route & ) { state.status->routeDelAll(); } );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7 ) ) );
}

TEST_F( MplsSmTest, WhatIsThereBeforeTheMachineIsToldWhenItChanges ) {
   sm = nullptr;
   state.name( 7, "spine" );
   state.put( 16, 7, 1 );
   state.put( 17, 8, 1 );
   sm = newSm();
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, IsEmpty() );
   state.put( 16, 7, 2 );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7, 2 ) ) );
}

// What is not told --------------------------------------------------------------------------------

TEST_F( MplsSmTest, ARemovedRouteIsNotTold ) {
   state.name( 7, "spine" );
   state.put( 16, 7 );
   forget();
   state.remove( 16 );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kNoSuchRoute16 ) );
}

TEST_F( MplsSmTest, RemovingARouteTakesNothingOutOfTheIndex ) {
   state.put( 16, 7 );
   state.remove( 16 );
   EXPECT_TRUE( isParked( 16, 7 ) );
   forget();
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7, kProcess16, kNoSuchRoute16 ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, ARouteWithoutAVersionIsNeitherToldNorParked ) {
   state.name( 7, "spine" );
   for ( const Route & route :
         { Route( RouteKey( 16 ) ), route16( MplsState::fec( 7 ), 0, 1, 1 ) } ) {
      forget();
      state.put( route );
      EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, notVersioned( route ) ) );
   }
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, ARouteThatIsNotProgrammedIsNeitherToldNorParked ) {
   const Route route = route16( MplsState::fec( 7 ), 1, 1, 0, 1 );
   state.put( route );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, notVersioned( route ) ) );
   EXPECT_TRUE( nothingParked() );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsSmTest, ARouteOverSomethingElseThanAGroupIsNeitherToldNorParked ) {
   state.name( 7, "spine" );
   for ( const std::uint64_t type : { 0, 2, 4, 26 } ) {
      forget();
      state.put( route16( fecOfType( type ), 1, 1 ) );
      EXPECT_THAT( traced(),
                   ElementsAre( kHandleRoute, kProcess16, noGroup( fecOfType( type ) ) ) );
   }
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, ARouteOverAGroupWithoutAVersionIsNeitherToldNorParked ) {
   state.put( route16( MplsState::fec( 7 ), 1, 0 ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kNonVersionedGroup ) );
   EXPECT_TRUE( nothingParked() );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsSmTest, WhatIsWrongFirstIsWhatIsTraced ) {
   const Route all = route16( fecOfType( 2 ), 0, 0, 0, 1 );
   state.put( all );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, notVersioned( all ) ) );
   state.put( route16( fecOfType( 2 ), 1, 0 ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, noGroup( fecOfType( 2 ) ) ) );
   // An adjacency type that does not exist is not looked at before the version is.
   state.put( route16( fecOfType( 27 ), 0, 1 ) );
   EXPECT_THAT( traced(), SizeIs( 3 ) );
}

TEST_F( MplsSmTest, AnAdjacencyTypeThatDoesNotExistIsFatal ) {
   for ( const std::uint64_t type : { 27, 28, 255 } ) {
      const Lumo::ThrowingAssertionHandler assertions;
      EXPECT_THROW( state.put( route16( fecOfType( type ), 1, 1 ) ), Lumo::AssertionThrown );
      EXPECT_EQ( assertions.failures().back().condition(),
                 "(value_ >> Fib::adjTypePos()) < Fib::adjTypeMax()" );
   }
}

TEST_F( MplsSmTest, AnAdjacencyTypeThatDoesNotExistEndsTheProcess ) {
   EXPECT_DEATH( state.put( route16( fecOfType( 27 ), 1, 1 ) ),
                 "\\(value_ >> Fib::adjTypePos\\(\\)\\) < Fib::adjTypeMax\\(\\)" );
}

// Duplicates --------------------------------------------------------------------------------------

TEST_F( MplsSmTest, ARouteThatIsToldOnceMoreWithoutAChangeIsADuplicate ) {
   state.name( 7, "spine" );
   state.put( 16, 7 );
   forget();
   state.touch( 16 );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kDuplicate ) );
}

TEST_F( MplsSmTest, EveryChangeThatMattersMakesItNoDuplicate ) {
   state.name( 7, "spine" );
   state.name( 8, "leaf" );
   const FecId a = MplsState::fec( 7 ), b = MplsState::fec( 8 );
   for ( const Route & changed :
         { route16( a, 2, 1, 5 ), route16( b, 1, 1, 5 ), route16( a, 1, 2, 5 ),
           route16( a, 1, 1, 6 ), route16( b, 2, 2, 6 ) } ) {
      state.put( route16( a, 1, 1, 5 ) );
      forget();
      state.put( changed );
      EXPECT_THAT( client.told, ElementsAre( changed ) );
      EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kPublish16 ) );
   }
}

TEST_F( MplsSmTest, AChangeOfTheProgrammingStateAloneIsNoDuplicate ) {
   state.name( 7, "spine" );
   const FecId a = MplsState::fec( 7 );
   state.put( route16( a, 1, 1, 0, 1 ) );
   forget();
   state.put( route16( a, 1, 1, 0, 0 ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kPublish16 ) );
   const Route withdrawn = route16( a, 1, 1, 0, 2 );
   state.put( withdrawn );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, notVersioned( withdrawn ) ) );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
}

TEST_F( MplsSmTest, AnAbsentAcknowledgementIsTheSameAsADefaultOne ) {
   state.put( Route( RouteKey( 16 ) ) );
   forget();
   state.put( Route( RouteKey( 16 ), AckInfo() ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kDuplicate ) );
   state.put( Route( RouteKey( 16 ) ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kDuplicate ) );
}

TEST_F( MplsSmTest, ADuplicateOfAParkedRouteStaysParked ) {
   state.put( 16, 7 );
   forget();
   state.touch( 16 );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kDuplicate ) );
   EXPECT_TRUE( isParked( 16, 7 ) );
}

TEST_F( MplsSmTest, ARouteThatComesBackTheSameIsNoDuplicate ) {
   state.name( 7, "spine" );
   state.put( 16, 7 );
   state.remove( 16 );
   state.put( 16, 7 );
   EXPECT_THAT( client.labels(), ElementsAre( 16, 16 ) );
}

TEST_F( MplsSmTest, OutsideOfANotificationEveryRouteIsJudged ) {
   state.name( 7, "spine" );
   state.put( 16, 7 );
   forget();
   sm->handleMplsRoute( RouteKey( 16 ) );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
   EXPECT_THAT( traced(), ElementsAre( kHandleRoute, kProcess16, kPublish16 ) );
}

// Names that go, routes that move -----------------------------------------------------------------

TEST_F( MplsSmTest, AGroupThatLosesItsNameDropsWhatWaitsForIt ) {
   state.put( 16, 7 );
   forget();
   state.name( 7, "" ); // Before, it was not even in the map.
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7 ) );
   EXPECT_TRUE( nothingParked() );
   state.put( 16, 7, 2 );
   EXPECT_EQ( parked( 7 ), 1U );
   state.unname( 7 );
   EXPECT_TRUE( nothingParked() );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
   state.put( 16, 7, 3 );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 7, 3 ) ) );
}

TEST_F( MplsSmTest, ARouteThatMovedToANamedGroupIsToldWhenTheOldGroupIsNamed ) {
   state.name( 8, "leaf" );
   state.put( 16, 7, 1 );
   state.put( 16, 8, 2 );
   EXPECT_TRUE( isParked( 16, 7 ) );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 8, 2 ) ) );
   forget();
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 8, 2 ) ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, ARouteThatMovedToAGroupWithoutANameIsParkedThereWhenTheOldGroupIsNamed ) {
   state.put( 16, 7, 1 );
   state.put( 16, 8, 2 );
   sm->fecIdToMplsRouteKeySetDel( MplsState::fec( 8 ) );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_EQ( parked( 7 ), 0U );
   EXPECT_TRUE( isParked( 16, 8 ) );
   state.name( 8, "leaf" );
   EXPECT_THAT( client.told, ElementsAre( MplsState::ready( 16, 8, 2 ) ) );
}

TEST_F( MplsSmTest, AParkedRouteThatIsNotFitAnyMoreIsDroppedWhenItsGroupIsNamed ) {
   state.put( 16, 7 );
   state.put( route16( MplsState::fec( 7 ), 1, 0 ) );
   forget();
   state.name( 7, "spine" );
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7, kProcess16, kNonVersionedGroup ) );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_TRUE( nothingParked() );
}

// Judgements on their own -------------------------------------------------------------------------

TEST_F( MplsSmTest, AGroupExistsWhenItHasAName ) {
   state.name( 7, "spine" );
   state.name( 8, "" );
   EXPECT_TRUE( Sm::doesNhgExist( MplsState::fec( 7 ), state.groups ) );
   EXPECT_FALSE( Sm::doesNhgExist( MplsState::fec( 8 ), state.groups ) );
   EXPECT_FALSE( Sm::doesNhgExist( MplsState::fec( 9 ), state.groups ) );
   EXPECT_FALSE( Sm::doesNhgExist( MplsState::fec( 7 ), nullptr ) );
}

TEST_F( MplsSmTest, WithoutAMapEveryRouteWaits ) {
   sm = MplsRouteHwProgrammingSmIs( client.callback(), state.status, nullptr );
   state.name( 7, "spine" );
   state.put( 16, 7 );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_TRUE( isParked( 16, 7 ) );
   sm->handleNexthopGroupStatus( 7 );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmTest, WithoutAStatusThereIsNothingToTell ) {
   sm = MplsRouteHwProgrammingSmIs( client.callback(), nullptr, state.groups );
   state.put( 16, 7 );
   state.name( 7, "spine" );
   EXPECT_THAT( client.told, IsEmpty() );
   EXPECT_THAT( traced(), ElementsAre( kHandleGroup, kGroup7 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
