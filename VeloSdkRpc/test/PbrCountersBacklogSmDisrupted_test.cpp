#include <functional>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BacklogMachineTest.h"

/// What the backlog machine withstands: listeners that change its input, drop it or throw while it
/// files a record.

namespace VeloSdkRpc::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

/// Listeners of the backlog that do the worst at the worst moment. `once` acts on one record only.
class DisruptedBacklogSmTest : public BacklogMachineTest {
 protected:
   void grow( int policies, int classes ) {
      for ( int p = 0; p < policies; ++p ) {
         for ( int c = 0; c < classes; ++c ) {
            tree.addClass( "p" + std::to_string( p ), "c" + std::to_string( c ) );
         }
      }
   }
   /// The policy map whose record is being filed.
   static std::string policyOf( const PbrCounters & value ) {
      return std::string( value.longKey().policyKey().name().view() );
   }
   Lumo::Ptr< ActsOnChange > once( std::function< void( const PbrCounters & ) > act ) {
      return onBacklog( [act = std::move( act ),
                         done = false]( std::uint64_t, const PbrCounters * value ) mutable {
         if ( value && !std::exchange( done, true ) ) { act( *value ); }
      } );
   }
   /// Runs until idle; what it throws is counted.
   void runAll() {
      while ( loop.pending() != 0 ) {
         try {
            loop.runOne();
         } catch ( const std::exception & ) { ++thrown; }
      }
   }

   int thrown = 0;
};

TEST_F( DisruptedBacklogSmTest, ThePolicyMapBeingScannedIsRemoved ) {
   for ( const bool yields : { false, true } ) {
      tree.root->policyMapCountersDelAll();
      grow( 3, 4 );
      yields ? loop.alwaysYields() : loop.endlessSlices();
      start( kAsynchronous );
      std::string removed;
      // All its classes need a short key, or their removal is an error.
      const auto disrupter = onBacklog( [&]( std::uint64_t, const PbrCounters * value ) {
         const std::string policy = value ? policyOf( *value ) : "";
         if ( removed.empty() && value && classes( policy ).back() == value->longKey().name() ) {
            removed = policy;
            tree.removePolicy( policy );
            EXPECT_FALSE( child( policy ) );
         }
      } );
      runAll();
      EXPECT_FALSE( removed.empty() );
      EXPECT_EQ( thrown, 0 );
      EXPECT_TRUE( sm->ready() );
      EXPECT_THAT( known(), SizeIs( 8 ) );
      expectInStepWithTheTree();
      sm = nullptr;
   }
}

TEST_F( DisruptedBacklogSmTest,
        AHalfScannedPolicyMapIsRemovedAndTheErrorReachesWhoStartedTheSlice ) {
   grow( 1, 4 );
   loop.endlessSlices();
   start( kAsynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) {
      EXPECT_THROW( tree.removePolicy( "p0" ), Quon::BadOptionalAccess );
   } );
   runAll();
   EXPECT_EQ( thrown, 0 ); // The listener caught it.
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_FALSE( child( "p0" ) );
}

TEST_F( DisruptedBacklogSmTest, TheClassBeingFiledIsRemoved ) {
   grow( 2, 3 );
   loop.alwaysYields();
   start( kAsynchronous );
   const auto disrupter = once( [&]( const PbrCounters & value ) {
      tree.removeClass( policyOf( value ), std::string( value.longKey().name().view() ) );
   } );
   runAll();
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( known(), SizeIs( 5 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, ClassesAndPolicyMapsAreAddedDuringAScan ) {
   grow( 2, 2 );
   loop.alwaysYields();
   start( kAsynchronous );
   int added = 0;
   const auto disrupter = onBacklog( [&]( std::uint64_t, const PbrCounters * value ) {
      if ( !value || added == 30 ) { return; }
      const std::string n = std::to_string( ++added );
      tree.addClass( policyOf( *value ), "new" + n );
      tree.addClass( "new" + n, "c" );
   } );
   runAll();
   EXPECT_EQ( added, 30 );
   EXPECT_TRUE( sm->ready() );
   EXPECT_THAT( known(), SizeIs( 4 + 2 * 30 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, ANewPolicyMapLosesAndGainsClassesInItsFirstScan ) {
   start( kSynchronous );
   const auto made = Lumo::makeNode< PolicyMapCounters >( PolicyMapKey( "p" ) );
   for ( int c = 0; c < 10; ++c ) {
      const std::string name = "c" + std::to_string( c );
      made->classCountersIs( name, Lumo::makeNode< CountersData >( Lumo::String( name ) ) );
   }
   const auto disrupter = once( [&]( const PbrCounters & value ) {
      tree.addClass( "p", "new" );
      tree.removeClass( "p", std::string( value.longKey().name().view() ) );
   } );
   tree.root->policyMapCountersIs( PolicyMapKey( "p" ), made );
   EXPECT_THAT( known(), SizeIs( 10 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, APolicyMapIsPutBackWhileItIsBeingWithdrawn ) {
   grow( 1, 3 );
   start( kSynchronous );
   const auto before = child( "p0" );
   const auto disrupter = once( [&]( const PbrCounters & value ) {
      EXPECT_TRUE( value.deletedKey() );
      tree.addClass( "p0", "c0", 7 );
      tree.addClass( "p0", "again", 8 );
   } );
   tree.removePolicy( "p0" );
   EXPECT_NE( child( "p0" ), before );
   EXPECT_THAT( known(), SizeIs( 2 ) );
   expectInStepWithTheTree();
   tree.count( "p0", "again", 9 );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, AClassIsPutBackWhileItIsBeingWithdrawn ) {
   grow( 1, 2 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) { tree.addClass( "p0", "c0", 7 ); } );
   tree.removeClass( "p0", "c0" );
   EXPECT_EQ( shortKey( "p0", "c0" ), 3U );
   expectInStepWithTheTree();
   tree.count( "p0", "c0", 9 );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, AClassThatIsBeingWithdrawnIsNotHeardAnyMore ) {
   const auto counters = tree.addClass( "p0", "c0" );
   start( kSynchronous );
   int withdrawn = 0;
   const auto disrupter = once( [&]( const PbrCounters & value ) {
      withdrawn += value.deletedKey();
      counters->countDataIs( CountData( 7, 700 ) );
   } );
   tree.removeClass( "p0", "c0" );
   EXPECT_EQ( withdrawn, 1 );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_EQ( table->nextKey(), 1U );
   EXPECT_TRUE( record( 1 ).deletedKey() );
}

TEST_F( DisruptedBacklogSmTest, AClassIsPutBackWhileAnotherIsBeingWithdrawnInsideItsWithdrawal ) {
   grow( 1, 3 );
   start( kSynchronous );
   const auto disrupter = onBacklog( [&]( std::uint64_t, const PbrCounters * value ) {
      if ( !value || !value->deletedKey() ) { return; }
      if ( value->longKey().name().view() == "c0" ) {
         tree.removeClass( "p0", "c1" );
      } else {
         tree.addClass( "p0", "c0", 7 );
      }
   } );
   tree.removeClass( "p0", "c0" );
   EXPECT_FALSE( classMachine( "p0", "c1" ) );
   EXPECT_THAT( known(), SizeIs( 2 ) );
   expectInStepWithTheTree();
   tree.count( "p0", "c0", 9 );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, APolicyMapThatGoesUnheardInItsOwnFirstScanIsWithdrawn ) {
   start( kSynchronous );
   sm->hasNotificationActiveIs( false );
   tree.addClass( "p0", "c0" );
   const auto disrupter = once( [&]( const PbrCounters & ) { tree.removePolicy( "p0" ); } );
   root().handlePolicyMapCounters0( PolicyMapKey( "p0" ) );
   EXPECT_FALSE( child( "p0" ) );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_TRUE( record( 1 ).deletedKey() );
}

TEST_F( DisruptedBacklogSmTest, APolicyMapIsRemovedByTheListenerOfItsOwnCounters ) {
   grow( 2, 2 );
   start( kSynchronous );
   // The record must change to be told.
   backlog->backlogDelAll();
   const auto disrupter = once( [&]( const PbrCounters & ) { tree.removePolicy( "p0" ); } );
   tree.count( "p0", "c0", 5 );
   EXPECT_FALSE( child( "p0" ) );
   EXPECT_THAT( known(), SizeIs( 2 ) );
}

TEST_F( DisruptedBacklogSmTest, TheMachineIsDroppedDuringAScan ) {
   grow( 3, 3 );
   loop.endlessSlices();
   start( kAsynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) { sm = nullptr; } );
   runAll();
   EXPECT_EQ( thrown, 0 );
   EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
}

TEST_F( DisruptedBacklogSmTest, TheMachinesBelowAreLetGoDuringAScan ) {
   for ( const bool yields : { false, true } ) {
      tree.root->policyMapCountersDelAll();
      grow( 3, 3 );
      yields ? loop.alwaysYields() : loop.endlessSlices();
      start( kAsynchronous );
      const auto disrupter = once( [&]( const PbrCounters & ) { sm->rootSm0Del(); } );
      runAll();
      EXPECT_EQ( thrown, 0 );
      EXPECT_FALSE( sm->rootSm0() );
      EXPECT_THAT( known(), SizeIs( 1 ) );
      EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
      sm = nullptr;
      backlog->backlogDelAll();
      table->shortKeyDelAll();
   }
}

TEST_F( DisruptedBacklogSmTest, TheMachinesBelowAreLetGoWhileEverythingIsDeleted ) {
   grow( 3, 3 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) { sm->rootSm0Del(); } );
   sm->doDeleteAll();
   EXPECT_FALSE( sm->rootSm0() );
   EXPECT_THAT( known(), SizeIs( 8 ) );
}

TEST_F( DisruptedBacklogSmTest, TheMachinesBelowAreLetGoWhileAClassIsBeingWithdrawn ) {
   grow( 1, 2 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) { sm->rootSm0Del(); } );
   tree.removeClass( "p0", "c0" );
   EXPECT_FALSE( sm->rootSm0() );
   EXPECT_THAT( known(), SizeIs( 1 ) );
}

TEST_F( DisruptedBacklogSmTest, AClassIsPutBackAndRemovedAgainWhileItIsBeingWithdrawn ) {
   grow( 1, 2 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) {
      tree.addClass( "p0", "c0", 7 );
      tree.removeClass( "p0", "c0" );
   } );
   tree.removeClass( "p0", "c0" );
   EXPECT_FALSE( classMachine( "p0", "c0" ) );
   EXPECT_THAT( known(), SizeIs( 1 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, TheMachineOfAClassIsLetGoWhileTheClassIsBeingWithdrawn ) {
   grow( 1, 2 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) {
      child( "p0" )->childSmClassCountersPolicyMapCountersCountersDataPtrConstDel( "c0" );
   } );
   tree.removeClass( "p0", "c0" );
   EXPECT_FALSE( classMachine( "p0", "c0" ) );
   EXPECT_THAT( known(), SizeIs( 1 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, TheMachineIsDroppedDuringAnEvent ) {
   for ( const bool removes : { false, true } ) {
      tree.root->policyMapCountersDelAll();
      grow( 2, 3 );
      start( kSynchronous );
      const auto disrupter = once( [&]( const PbrCounters & ) { sm = nullptr; } );
      if ( removes ) {
         tree.removePolicy( "p0" );
      } else {
         tree.addClass( "p0", "new" );
      }
      EXPECT_FALSE( sm );
      EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
   }
}

TEST_F( DisruptedBacklogSmTest, TheMachineIsDroppedWhileEverythingIsDeleted ) {
   grow( 3, 3 );
   start( kSynchronous );
   const auto disrupter = once( [&]( const PbrCounters & ) { sm = nullptr; } );
   sm->doDeleteAll();
   EXPECT_FALSE( sm );
   EXPECT_THAT( known(), IsEmpty() ); // What was begun is finished.
}

TEST_F( DisruptedBacklogSmTest, OneBrokenRecordDoesNotKeepTheOthersOut ) {
   for ( const bool yields : { false, true } ) {
      tree.root->policyMapCountersDelAll();
      grow( 3, 3 );
      yields ? loop.alwaysYields() : loop.endlessSlices();
      start( kAsynchronous );
      const auto disrupter =
         once( []( const PbrCounters & ) { throw std::runtime_error( "no" ); } );
      thrown = 0;
      runAll();
      EXPECT_EQ( thrown, 1 );
      EXPECT_TRUE( sm->ready() );
      EXPECT_TRUE( sm->idle() );
      EXPECT_THAT( known(), SizeIs( 9 ) );
      expectInStepWithTheTree();
      sm = nullptr;
   }
}

TEST_F( DisruptedBacklogSmTest, AnExceptionInAReactionLeavesThroughThePublisherAndNothingIsLost ) {
   grow( 1, 1 );
   start( kSynchronous );
   {
      const auto disrupter =
         once( []( const PbrCounters & ) { throw std::runtime_error( "no" ); } );
      EXPECT_THROW( tree.addClass( "p0", "new" ), std::runtime_error );
   }
   EXPECT_FALSE( root().inReactor() );
   EXPECT_TRUE( classMachine( "p0", "new" ) );
   expectInStepWithTheTree();
   {
      const auto disrupter =
         once( []( const PbrCounters & ) { throw std::runtime_error( "no" ); } );
      EXPECT_THROW( tree.removePolicy( "p0" ), std::runtime_error );
   }
   EXPECT_FALSE( child( "p0" ) );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_FALSE( root().inReactor() );
}

TEST_F( DisruptedBacklogSmTest, AnExceptionDuringASynchronousStartLeavesNoMachineBehind ) {
   grow( 2, 2 );
   {
      const auto disrupter =
         once( []( const PbrCounters & ) { throw std::runtime_error( "no" ); } );
      EXPECT_THROW( start( kSynchronous ), std::runtime_error );
   }
   EXPECT_FALSE( sm );
   EXPECT_FALSE( tree.root->publisher()->hasSubscribers() );
   start( kSynchronous );
   EXPECT_THAT( known(), SizeIs( 4 ) );
   expectInStepWithTheTree();
}

TEST_F( DisruptedBacklogSmTest, ABrokenRecordDuringDeletionOfEverythingDoesNotKeepTheOthersIn ) {
   grow( 2, 3 );
   start( kSynchronous );
   const auto disrupter = once( []( const PbrCounters & ) { throw std::runtime_error( "no" ); } );
   EXPECT_THROW( sm->doDeleteAll(), std::runtime_error );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_FALSE( child( "p0" ) );
   EXPECT_FALSE( child( "p1" ) );
}

} // namespace
} // namespace VeloSdkRpc::test
