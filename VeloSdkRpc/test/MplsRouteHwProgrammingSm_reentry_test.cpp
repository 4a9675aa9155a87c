// What clients may do to the machine while they are told of a route.

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/MplsState.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// Three routes wait for group 7; group 1 has a name, groups 2 and above have none.
class MplsSmReentryTest : public MplsSmFixture {
 protected:
   MplsSmReentryTest() {
      state.name( 1, "named" );
      for ( std::uint32_t label : { 16, 17, 18 } ) { state.put( label, 7 ); }
   }

   void release( const std::string & name = "spine" ) { state.name( 7, name ); }
   /// Releases, and the client throws at the first route. Returns which one that was.
   std::uint32_t brokenRelease() {
      atFirst( []( const Route & ) { throw std::runtime_error( "client" ); } );
      EXPECT_THROW( release( "broken" ), std::runtime_error );
      EXPECT_THAT( client.told, SizeIs( 1 ) );
      return client.labels()[0];
   }
   /// One of the three that has not been told yet.
   std::uint32_t oneToCome() const {
      const auto told = client.labels();
      for ( std::uint32_t label : { 16, 17, 18 } ) {
         if ( std::ranges::find( told, label ) == told.end() ) { return label; }
      }
      throw std::logic_error( "all have been told" );
   }
   static auto allThree() { return UnorderedElementsAre( 16, 17, 18 ); }
};

// Routes ------------------------------------------------------------------------------------------

TEST_F( MplsSmReentryTest, ARouteThatTheClientChangesDuringAReleaseIsToldOnceAsItIsThen ) {
   std::uint32_t changed = 0;
   atFirst( [&]( const Route & ) { state.put( changed = oneToCome(), 7, 2 ); } );
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_EQ( client.told[1], MplsState::ready( changed, 7, 2 ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, ARouteThatTheClientMovesToANamedGroupIsToldOnce ) {
   std::uint32_t moved = 0;
   atFirst( [&]( const Route & ) { state.put( moved = oneToCome(), 1, 2 ); } );
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_EQ( client.told[1], MplsState::ready( moved, 1, 2 ) );
}

TEST_F( MplsSmReentryTest, ARouteThatTheClientMovesToAGroupWithoutANameWaitsThere ) {
   std::uint32_t moved = 0;
   atFirst( [&]( const Route & ) { state.put( moved = oneToCome(), 2 ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 2 ) );
   EXPECT_TRUE( isParked( moved, 2 ) );
   state.name( 2, "leaf" );
   EXPECT_THAT( client.labels(), allThree() );
}

TEST_F( MplsSmReentryTest, ARouteThatTheClientRemovesIsNotTold ) {
   std::uint32_t removed = 0;
   atFirst( [&]( const Route & ) { state.remove( removed = oneToCome() ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 2 ) );
   EXPECT_EQ( oneToCome(), removed );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, TheClientMayRemoveEveryRoute ) {
   atFirst( [this]( const Route & ) { state.status->routeDelAll(); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, TheClientMayChangeTheVeryRouteThatItIsToldOf ) {
   atFirst( [this]( const Route & route ) { state.put( route.key().label(), 7, 2 ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 4 ) );
   EXPECT_EQ( client.told[1], MplsState::ready( client.labels()[0], 7, 2 ) );
}

TEST_F( MplsSmReentryTest, TheClientMayParkTheVeryRouteThatItIsToldOf ) {
   std::uint32_t label = 0;
   atFirst( [&]( const Route & route ) { state.put( label = route.key().label(), 2 ); } );
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( isParked( label, 2 ) );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySet().size(), 1U );
}

TEST_F( MplsSmReentryTest, RoutesMayComeDuringARelease ) {
   int calls = 0;
   client.then = [&]( const Route & ) {
      if ( ++calls > 3 ) { return; }
      for ( std::uint32_t n = 0; n < 100; ++n ) { state.put( 1000 * calls + n, 2 + n % 5 ); }
   };
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_EQ( parked( 2 ), 60U );
   EXPECT_EQ( sm->fecIdToMplsRouteKeySet().size(), 5U );
}

// Names -------------------------------------------------------------------------------------------

TEST_F( MplsSmReentryTest, AGroupThatTheClientRenamesAtEveryCallIsReleasedOnce ) {
   client.then = [this]( const Route & route ) {
      state.name( 7, std::to_string( route.key().label() ) );
   };
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, AnotherGroupThatTheClientNamesIsReleasedInBetween ) {
   state.put( 30, 2 );
   state.put( 31, 2 );
   atFirst( [this]( const Route & ) { state.name( 2, "leaf" ); } );
   release();
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18, 30, 31 ) );
   EXPECT_THAT( ( std::vector{ client.labels()[1], client.labels()[2] } ),
                UnorderedElementsAre( 30, 31 ) );
}

TEST_F( MplsSmReentryTest, RoutesThatWaitForBothGroupsAreToldOnce ) {
   const auto putAll = [this]( std::uint32_t first, std::uint32_t last, MplsState::Group group,
                               std::uint32_t version ) {
      for ( auto n = first; n <= last; ++n ) { state.put( n, group, version ); }
   };
   putAll( 100, 159, 7, 1 );
   putAll( 120, 159, 2, 2 ); // They move on, and wait for both groups.
   EXPECT_EQ( parked( 7 ), 63U );
   EXPECT_EQ( parked( 2 ), 40U );
   atFirst( [this]( const Route & ) { state.name( 2, "leaf" ); } );
   release();
   auto labels = client.labels();
   std::ranges::sort( labels );
   EXPECT_THAT( labels, SizeIs( 63 ) );
   EXPECT_EQ( std::ranges::adjacent_find( labels ), labels.end() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, RoutesWhoseGroupTheClientDeprivesOfItsNameWaitForTheNext ) {
   atFirst( [this]( const Route & ) { state.unname( 7 ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_EQ( parked( 7 ), 2U );
   release( "leaf" );
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, ANameThatTheClientTakesAwayAndGivesBackHoldsNothingUp ) {
   atFirst( [this]( const Route & ) {
      state.unname( 7 );
      state.put( 19, 7 ); // Waits for the moment.
      release( "leaf" );
   } );
   release();
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18, 19 ) );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, WhatIsParkedUnderTheFecThatIsBeingReleasedStaysParked ) {
   atFirst( [this]( const Route & ) {
      state.unname( 7 );
      state.put( 19, 7 );
   } );
   release();
   EXPECT_TRUE( isParked( 19, 7 ) );
   release( "leaf" );
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18, 19 ) );
}

TEST_F( MplsSmReentryTest, TheClientMayEmptyTheIndex ) {
   state.put( 30, 2 );
   client.then = [this]( const Route & ) { sm->fecIdToMplsRouteKeySetDelAll(); };
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( nothingParked() );
}

// Stopping ----------------------------------------------------------------------------------------

TEST_F( MplsSmReentryTest, AClientThatTurnsNotificationsOffIsToldNoMoreAndTheRestWaits ) {
   atFirst( [this]( const Route & ) { sm->hasNotificationActiveIs( false ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_EQ( parked( 7 ), 2U );
   sm->hasNotificationActiveIs( true );
   release( "leaf" );
   EXPECT_THAT( client.labels(), allThree() );
}

TEST_F( MplsSmReentryTest, AClientThatTurnsNotificationsOffAndOnIsServedToTheEnd ) {
   client.then = [this]( const Route & ) {
      sm->hasNotificationActiveIs( false );
      sm->hasNotificationActiveIs( true );
   };
   release();
   EXPECT_THAT( client.labels(), allThree() );
}

TEST_F( MplsSmReentryTest, AMachineThatBecomesAZombieTellsNoMore ) {
   atFirst( [this]( const Route & ) { sm->quonDoZombieReactors( true ); } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_EQ( parked( 7 ), 2U );
}

TEST_F( MplsSmReentryTest, ReactionsThatAreAskedForDirectlyGoOnWithoutNotifications ) {
   sm->hasNotificationActiveIs( false );
   release();
   sm->handleNexthopGroupStatus( 7 );
   EXPECT_THAT( client.labels(), allThree() );
}

/// A client that can be asked whether the machine, which holds it, is still there.
class MplsSmForsakenTest : public MplsSmReentryTest {
 protected:
   MplsSmForsakenTest() {
      sm = MplsRouteHwProgrammingSmIs(
         [tell = client.callback(), witness = witness_]( const Route & route ) { tell( route ); },
         state.status, state.groups );
      for ( std::uint32_t label : { 16, 17, 18 } ) { state.put( label, 7, 2 ); }
   }

   bool machineIsThere() const { return witness_.use_count() > 1; }
   bool somebodyListens() const {
      return state.status->publisher()->hasSubscribers() ||
             state.groups->publisher()->hasSubscribers();
   }

 private:
   const std::shared_ptr< int > witness_ = std::make_shared< int >();
};

TEST_F( MplsSmForsakenTest, TheLastReferenceMayGoWhileARouteIsTold ) {
   atFirst( [this]( const Route & ) {
      sm = nullptr;
      EXPECT_TRUE( machineIsThere() );
   } );
   state.put( 16, 1 );
   EXPECT_THAT( client.labels(), ElementsAre( 16 ) );
   EXPECT_FALSE( machineIsThere() );
   EXPECT_FALSE( somebodyListens() );
}

TEST_F( MplsSmForsakenTest, TheLastReferenceMayGoDuringAReleaseAndTheRestIsNotTold ) {
   atFirst( [this]( const Route & ) { sm = nullptr; } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( machineIsThere() );
   EXPECT_FALSE( somebodyListens() );
}

TEST_F( MplsSmForsakenTest, AMachineThatNobodyRefersToReactsToNothing ) {
   state.put( 30, 2 );
   atFirst( [this]( const Route & ) {
      sm = nullptr;
      state.put( 40, 1 );
      state.name( 2, "leaf" );
   } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( machineIsThere() );
}

TEST_F( MplsSmForsakenTest, TheLastReferenceMayGoInACallWithinACall ) {
   state.put( 30, 2 );
   client.then = [this]( const Route & ) {
      client.then = [this]( const Route & ) { sm = nullptr; };
      state.name( 2, "leaf" );
      EXPECT_TRUE( machineIsThere() );
   };
   release();
   EXPECT_THAT( client.told, SizeIs( 2 ) );
   EXPECT_FALSE( machineIsThere() );
}

TEST_F( MplsSmForsakenTest, AReferenceThatIsTakenAgainInTimeCounts ) {
   client.then = [this]( const Route & ) {
      const Sm * const same = sm.get();
      auto other = std::exchange( sm, nullptr );
      EXPECT_EQ( other.get(), same );
      sm = std::move( other );
   };
   release();
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( machineIsThere() );
}

TEST_F( MplsSmForsakenTest, TheLastReferenceMayGoAndTheClientThrow ) {
   atFirst( [this]( const Route & ) {
      sm = nullptr;
      throw std::runtime_error( "client" );
   } );
   EXPECT_THROW( release(), std::runtime_error );
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( machineIsThere() );
}

TEST_F( MplsSmForsakenTest, AClientMayStartAnotherMachineInItsPlace ) {
   MplsClient other;
   atFirst( [&]( const Route & ) {
      sm = MplsRouteHwProgrammingSmIs( other.callback(), state.status, state.groups );
      state.put( 40, 1 );
   } );
   release();
   EXPECT_THAT( client.told, SizeIs( 1 ) );
   EXPECT_FALSE( machineIsThere() );
   EXPECT_THAT( other.labels(), ElementsAre( 40 ) );
}

// Exceptions --------------------------------------------------------------------------------------

TEST_F( MplsSmReentryTest, ARouteAtWhichTheClientThrewCountsAsTold ) {
   atFirst( []( const Route & ) { throw std::runtime_error( "client" ); } );
   EXPECT_THROW( state.put( 30, 1 ), std::runtime_error );
   state.touch( 30 );
   state.name( 1, "renamed" );
   EXPECT_THAT( client.labels(), ElementsAre( 30 ) );
   state.put( 30, 1, 2 );
   EXPECT_THAT( client.labels(), ElementsAre( 30, 30 ) );
}

TEST_F( MplsSmReentryTest, AfterAnExceptionALaterNameReleasesTheOthers ) {
   brokenRelease();
   EXPECT_EQ( parked( 7 ), 2U );
   release( "leaf" );
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( nothingParked() );
}

TEST_F( MplsSmReentryTest, AClientThatThrowsEveryTimeHearsOfEveryRouteOnce ) {
   client.then = []( const Route & ) { throw std::runtime_error( "client" ); };
   for ( const char * name : { "a", "b", "c" } ) {
      EXPECT_THROW( release( name ), std::runtime_error );
   }
   EXPECT_NO_THROW( release( "d" ) );
   EXPECT_THAT( client.labels(), allThree() );
}

TEST_F( MplsSmReentryTest, ARouteLeftByAnExceptionThatIsToldMeanwhileIsNotToldOnceMore ) {
   brokenRelease();
   const std::uint32_t left = oneToCome();
   state.put( left, 7, 2 );
   EXPECT_EQ( client.told.back(), MplsState::ready( left, 7, 2 ) );
   EXPECT_FALSE( isParked( left, 7 ) );
   release( "leaf" );
   EXPECT_THAT( client.labels(), allThree() );
}

TEST_F( MplsSmReentryTest, WhatAnExceptionLeavesJoinsWhatWasParkedMeanwhile ) {
   state.put( 30, 8 );
   atFirst( [this]( const Route & ) {
      state.unname( 7 );
      state.put( 19, 7 );
      throw std::runtime_error( "client" );
   } );
   EXPECT_THROW( release(), std::runtime_error );
   EXPECT_EQ( parked( 7 ), 3U );
   // The two that are left have waited longer than the route over group 8.
   EXPECT_THAT( sm->parkedRoutes(), ElementsAre( Sm::ParkedRoutes{ MplsState::fec( 7 ), 3 },
                                                 Sm::ParkedRoutes{ MplsState::fec( 8 ), 1 } ) );
   release( "leaf" );
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18, 19 ) );
}

TEST_F( MplsSmReentryTest, AnExceptionOutOfACallWithinACallLeavesBothGroupsParked ) {
   state.put( 30, 2 );
   state.put( 31, 2 );
   client.then = [this]( const Route & ) {
      client.then = []( const Route & ) { throw std::runtime_error( "client" ); };
      state.name( 2, "leaf" );
   };
   EXPECT_THROW( release(), std::runtime_error );
   EXPECT_THAT( client.told, SizeIs( 2 ) );
   EXPECT_EQ( parked( 7 ), 2U );
   EXPECT_EQ( parked( 2 ), 1U );
   client.then = nullptr;
   release( "rack" );
   state.name( 2, "row" );
   EXPECT_THAT( client.labels(), UnorderedElementsAre( 16, 17, 18, 30, 31 ) );
}

TEST_F( MplsSmReentryTest, AnEmptyCallbackRaisesBadFunctionCallAndLeavesTheOthersParked ) {
   sm = MplsRouteHwProgrammingSmIs( {}, state.status, state.groups );
   EXPECT_THROW( state.put( 30, 1 ), std::bad_function_call );
   state.put( 16, 7, 2 );
   state.put( 17, 7, 2 );
   EXPECT_THROW( release(), std::bad_function_call );
   EXPECT_EQ( parked( 7 ), 1U );
}

// Entries -----------------------------------------------------------------------------------------

TEST_F( MplsSmReentryTest, AnEntryWhoseOnlyRouteBrokeTheClientLeavesTheIndex ) {
   state.put( 20, 8 );
   atFirst( []( const Route & ) { throw std::runtime_error( "client" ); } );
   EXPECT_THROW( state.name( 8, "broken" ), std::runtime_error );
   EXPECT_FALSE( sm->fecIdToMplsRouteKeySet( MplsState::fec( 8 ) ) );
   EXPECT_THAT( sm->parkedRoutes(), SizeIs( 1 ) ); // The three of group 7.
}

TEST_F( MplsSmReentryTest, AnEntryLeavesTheIndexWithTheLastRouteThatABrokenReleaseLeftInIt ) {
   brokenRelease();
   state.put( oneToCome(), 7, 2 );
   EXPECT_EQ( parked( 7 ), 1U );
   EXPECT_FALSE( nothingParked() );
   state.put( oneToCome(), 7, 2 );
   EXPECT_THAT( client.labels(), allThree() );
   EXPECT_TRUE( nothingParked() );
}

} // namespace
} // namespace VeloSdkRpc::test
