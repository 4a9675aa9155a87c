// Mounting, the two states and the switches between them, point queries. What consumers may do is
// in PbrCountersMgr_reentry_test.cpp, what threads may do in PbrCountersMgr_thread_test.cpp.

#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/test/MgrFixture.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class PbrCountersMgrTest : public MgrFixture {};

TEST_F( PbrCountersMgrTest, AWatchingConsumerLearnsTheTreeAndEveryChange ) {
   const auto consumer = newConsumer();
   tree.addClass( "edge", "web", 1 );
   tree.addClass( "edge", "voice", 2 );
   mount();
   mgr().startWatching( consumer );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   tree.addClass( "core", "bulk", 3 );
   tree.count( "edge", "web", 10 );
   tree.removeClass( "edge", "voice" );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   tree.removePolicy( "edge" );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   EXPECT_EQ( mgr().shortKeys()->nextKey(), 3U );
}

// Mounting ----------------------------------------------------------------------------------------

TEST_F( PbrCountersMgrTest, AtFirstItHasATableABacklogAndATaskButNoStatusNoMachineAndNoConsumer ) {
   EXPECT_FALSE( mgr().root() );
   EXPECT_FALSE( mgr().compressedKeyTableSm() );
   EXPECT_FALSE( mgr().pbrCountersBacklogSm() );
   EXPECT_EQ( mgr().shortKeys()->nextKey(), 0U );
   EXPECT_EQ( mgr().backlog()->shortKeys(), mgr().shortKeys() );
   EXPECT_FALSE( mgr().backlog()->watching() );
   EXPECT_EQ( mgr().backlogTask()->pbrCountersBacklogPtr(), mgr().backlog() );
   EXPECT_EQ( mgr().backlogTask()->task()->taskName(), "PbrCountersStream" );
}

TEST_F( PbrCountersMgrTest, ItAsksForTheStatusInSharedMemoryForReadingAndForNothingElse ) {
   const auto group = Lumo::makeNode< Keldb::MountGroup >();
   const auto sharedGroup = Lumo::makeNode< QuonSharedMem::MountGroup >();
   mgr().doMounts( group, sharedGroup );
   EXPECT_THAT( group->mounts(), IsEmpty() );
   ASSERT_THAT( sharedGroup->mounts(), SizeIs( 1 ) );
   EXPECT_EQ( sharedGroup->mounts()[0].path, "policyMap/counters/pbr" );
   EXPECT_EQ( sharedGroup->mounts()[0].entityType, "PolicyMap::Counters::PolicyMapTypeCounters" );
   EXPECT_TRUE( sharedGroup->mounts()[0].info.reader );
}

TEST_F( PbrCountersMgrTest, AfterTheMountsItIsIdleKnowsEveryKeyAndNothingIsNovel ) {
   tree.addClass( "edge", "web" );
   tree.addClass( "core", "bulk" );
   mount();
   EXPECT_EQ( mgr().root(), tree.root );
   EXPECT_TRUE( idle() );
   EXPECT_EQ( novel(), 0U );
   EXPECT_EQ( pending(), 0U );
   EXPECT_THAT( ( std::vector{ shortKey( "edge", "web" ), shortKey( "core", "bulk" ) } ),
                UnorderedElementsAre( 1, 2 ) );
   EXPECT_EQ( mgr().compressedKeyTableSm()->root(), tree.root );
   EXPECT_EQ( mgr().compressedKeyTableSm()->shortKeys(), mgr().shortKeys() );
}

TEST_F( PbrCountersMgrTest, AStatusThatIsBeingWrittenMustNotBeTaken ) {
   const Lumo::ThrowingAssertionHandler assertions;
   shared->beingWrittenIs( kPath, true );
   EXPECT_THROW( mount(), Lumo::AssertionThrown );
   ASSERT_THAT( assertions.failures(), SizeIs( 1 ) );
   EXPECT_EQ( assertions.failures()[0].message(),
              "the entity at policyMap/counters/pbr is being written and must not be read now" );
   EXPECT_FALSE( mgr().root() );
}

TEST_F( PbrCountersMgrTest, ThatSomethingElseIsBeingWrittenDoesNotMatter ) {
   shared->beingWrittenIs( "policyMap/counters/qos", true );
   mount();
   EXPECT_EQ( mgr().root(), tree.root );
}

TEST_F( PbrCountersMgrTest, AMissingStatusLeavesTheRootNullAndTheMachinesWithoutInput ) {
   const auto consumer = newRecorder();
   shared->entityIs( kPath, nullptr );
   shared->beingWrittenIs( kPath, true );
   tree.addClass( "edge", "web" );
   mount();
   EXPECT_FALSE( mgr().root() );
   EXPECT_TRUE( idle() );
   mgr().startWatching( consumer );
   EXPECT_TRUE( streaming() );
   tree.addClass( "edge", "voice" );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->items, IsEmpty() );
   mgr().stopWatching();
   EXPECT_TRUE( idle() );
   EXPECT_EQ( mgr().shortKeys()->nextKey(), 0U );
   EXPECT_FALSE( mgr().counters( 1, longKey( "edge", "web" ) ).data() );
}

TEST_F( PbrCountersMgrTest, AStatusOfAnotherTypeIsAsGoodAsNone ) {
   shared->entityIs( kPath, tree.addPolicy( "edge" ) );
   mount();
   EXPECT_FALSE( mgr().root() );
   EXPECT_TRUE( idle() );
}

TEST_F( PbrCountersMgrTest, WatchingThatBeganBeforeTheMountsSeesNothingAndEndsWithThem ) {
   const auto consumer = newConsumer();
   tree.addClass( "edge", "web", 1 );
   mgr().startWatching( consumer );
   EXPECT_TRUE( streaming() );
   loop.runUntilIdle();
   EXPECT_TRUE( consumer->contents().empty() );
   mount();
   EXPECT_TRUE( idle() );
   EXPECT_EQ( shortKey( "edge", "web" ), 1U );
   tree.addClass( "edge", "voice", 2 );
   loop.runUntilIdle();
   EXPECT_TRUE( consumer->contents().empty() );
   mgr().startWatching( consumer );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrTest, StoppingBeforeTheMountsDoesNotKeepItFromFollowingTheStatus ) {
   mgr().stopWatching();
   EXPECT_TRUE( idle() );
   mount();
   EXPECT_TRUE( idle() );
   tree.addClass( "edge", "web" );
   EXPECT_EQ( shortKey( "edge", "web" ), 1U );
}

TEST_F( PbrCountersMgrTest, TheMountOperationsComeRightBehindTheTwoDestructors ) {
   const auto slotOf = []( auto function ) { // Generic C++ ABI: 1 + offset.
      std::ptrdiff_t word;
      std::memcpy( &word, &function, sizeof( word ) );
      return static_cast< std::size_t >( word - 1 ) / sizeof( void * );
   };
   EXPECT_EQ( slotOf( &PbrPolicyCountersMgr::doMounts ), 2U );
   EXPECT_EQ( slotOf( &PbrPolicyCountersMgr::onMountsComplete ), 3U );
}

// Switches ----------------------------------------------------------------------------------------

TEST_F( PbrCountersMgrTest, ShortKeysSurviveSwitchesNoveltyDoesNotAndTheNextConsumerIsServed ) {
   const auto f = newConsumer(), g = newConsumer();
   tree.addClass( "edge", "web", 1 );
   mount();
   mgr().startWatching( f );
   tree.addClass( "edge", "voice", 2 );
   EXPECT_EQ( novel(), 1U );
   mgr().stopWatching();
   EXPECT_EQ( novel(), 0U );
   tree.addClass( "edge", "bulk", 3 );
   mgr().startWatching( g );
   EXPECT_EQ( shortKey( "edge", "web" ), 1U );
   EXPECT_EQ( shortKey( "edge", "voice" ), 2U );
   EXPECT_EQ( shortKey( "edge", "bulk" ), 3U );
   EXPECT_EQ( novel(), 0U );
   loop.runUntilIdle();
   EXPECT_TRUE( f->contents().empty() );
   EXPECT_EQ( g->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrTest, StoppingTwiceIsHarmlessAndClearsNoveltyOnce ) {
   mount();
   mgr().startWatching( newConsumer() );
   mgr().stopWatching();
   const auto machine = mgr().compressedKeyTableSm();
   mgr().shortKeys()->novelKeyIs( 99 );
   mgr().stopWatching();
   EXPECT_EQ( mgr().compressedKeyTableSm(), machine );
   EXPECT_EQ( novel(), 1U );
}

TEST_F( PbrCountersMgrTest, WhatIsPendingAtAStopStillGoesToTheLastConsumer ) {
   const auto consumer = newRecorder();
   tree.addClass( "edge", "web", 1 );
   mount();
   mgr().startWatching( consumer );
   mgr().stopWatching();
   EXPECT_EQ( mgr().backlog()->frontend(), consumer );
   EXPECT_EQ( pending(), 1U );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), ElementsAre( 1 ) );
   const int pushes = consumer->pushes;
   tree.count( "edge", "web", 2 );
   tree.addClass( "edge", "voice" );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), ElementsAre( 1 ) );
   EXPECT_EQ( consumer->pushes, pushes );
}

TEST_F( PbrCountersMgrTest, StartingWhileStreamingOnlyReplacesTheConsumer ) {
   const auto f = newConsumer(), g = newConsumer();
   tree.addClass( "edge", "web", 1 );
   tree.addClass( "edge", "voice", 2 );
   tree.addClass( "edge", "bulk", 3 );
   mount();
   mgr().startWatching( f );
   loop.runUntilIdle();
   const auto machine = mgr().pbrCountersBacklogSm();
   tree.count( "edge", "web", 10 );
   mgr().startWatching( g );
   EXPECT_EQ( mgr().pbrCountersBacklogSm(), machine );
   tree.removeClass( "edge", "bulk" );
   loop.runUntilIdle();
   // It is told of what was pending and of what changes, and of nothing else.
   EXPECT_EQ( g->contents(),
              ( std::map< CountersTree::Name, std::uint64_t >{ { { "edge", "web" }, 10 } } ) );
   EXPECT_EQ( f->contents().size(), 3U );
}

TEST_F( PbrCountersMgrTest, WithoutAConsumerWhatIsPendingIsThrownAway ) {
   const auto consumer = newRecorder();
   tree.addClass( "edge", "web", 1 );
   mount();
   mgr().startWatching( nullptr );
   loop.runUntilIdle();
   EXPECT_EQ( pending(), 0U );
   mgr().startWatching( consumer );
   tree.addClass( "edge", "voice", 2 );
   loop.runUntilIdle();
   EXPECT_THAT( consumer->keys(), ElementsAre( 2 ) );
}

TEST_F( PbrCountersMgrTest, OnlyKeysThatAppearWhileStreamingAreAnnouncedWithTheirLongKey ) {
   const auto consumer = newRecorder();
   tree.addClass( "edge", "known", 1 );
   mount();
   mgr().startWatching( consumer );
   tree.addClass( "edge", "new", 2 );
   loop.runUntilIdle();
   tree.count( "edge", "new", 3 );
   loop.runUntilIdle();
   std::map< std::uint64_t, std::vector< bool > > announced;
   for ( const auto & item : consumer->items ) {
      announced[item.shortKey].push_back( item.encodeLongKey );
   }
   EXPECT_THAT( announced[1], ElementsAre( false ) );
   EXPECT_THAT( announced[2], ElementsAre( true, false ) );
}

TEST_F( PbrCountersMgrTest, AClassThatGoesWhileIdleLosesItsKeyAndNobodyIsToldOfIt ) {
   const auto old = newRecorder();
   const auto next = newConsumer();
   tree.addClass( "edge", "web", 1 );
   tree.addClass( "edge", "voice", 2 );
   mount();
   mgr().startWatching( old );
   loop.runUntilIdle();
   mgr().stopWatching();
   const std::uint64_t web = shortKey( "edge", "web" );
   tree.removeClass( "edge", "web" );
   EXPECT_EQ( shortKey( "edge", "web" ), 0U );
   loop.runUntilIdle();
   mgr().startWatching( next );
   loop.runUntilIdle();
   EXPECT_THAT( old->items, SizeIs( 2 ) );
   EXPECT_FALSE( next->told.contains( web ) );
   EXPECT_EQ( next->contents(), tree.contents() );
   tree.addClass( "edge", "web", 1 );
   EXPECT_EQ( shortKey( "edge", "web" ), 3U );
}

TEST_F( PbrCountersMgrTest, WhatIsPendingAtAStartAndExistsNoMoreIsWithdrawn ) {
   const auto f = newConsumer();
   const auto g = newRecorder();
   tree.addClass( "edge", "web", 1 );
   tree.addClass( "edge", "voice", 2 );
   mount();
   mgr().startWatching( f );
   loop.runUntilIdle();
   tree.removeClass( "edge", "web" ); // Its deletion is pending, and meant for `f`.
   mgr().stopWatching();
   mgr().startWatching( g );
   loop.runUntilIdle();
   EXPECT_THAT( g->keys(), ElementsAre( shortKey( "edge", "voice" ) ) );
   EXPECT_EQ( f->contents().size(), 2U );
}

TEST_F( PbrCountersMgrTest, TheMachinesRunTheWayTheyDoByDefault ) {
   mount();
   const auto check = []( const auto & machine ) {
      EXPECT_TRUE( machine.synchronous() );
      EXPECT_FALSE( machine.scheduler() );
      EXPECT_EQ( machine.priority(), 0 );
      EXPECT_EQ( machine.ilexControl().traceHandleName(), "" );
      EXPECT_EQ( machine.ilexControl().synchronousChoice(), 3 );
      EXPECT_TRUE( machine.hasNotificationActive() );
      EXPECT_TRUE( machine.ready() );
   };
   check( *mgr().compressedKeyTableSm() );
   mgr().startWatching( newConsumer() );
   check( *mgr().pbrCountersBacklogSm() );
   EXPECT_EQ( mgr().pbrCountersBacklogSm()->root(), tree.root );
   EXPECT_EQ( mgr().pbrCountersBacklogSm()->backlog(), mgr().backlog() );
   EXPECT_EQ( mgr().pbrCountersBacklogSm()->shortKeys(), mgr().shortKeys() );
}

TEST_F( PbrCountersMgrTest, TheOldMachineIsGoneBeforeTheNewOneIsMade ) {
   mount();
   std::vector< bool > oldSeen;
   {
      const Witness old( mgr().compressedKeyTableSm()->publisher() );
      const AtTrace making( "create local SMs", [&] { oldSeen.push_back( old.sees() ); } );
      mgr().startWatching( newConsumer() );
   }
   {
      const Witness old( mgr().pbrCountersBacklogSm()->publisher() );
      const AtTrace making( "create local SMs", [&] { oldSeen.push_back( old.sees() ); } );
      mgr().stopWatching();
   }
   EXPECT_THAT( oldSeen, ElementsAre( false, false ) );
}

TEST_F( PbrCountersMgrTest, APolicyMapWithoutCountersKeepsNobodyFromMountingStoppingOrFollowing ) {
   const auto consumer = newConsumer();
   tree.addClass( "edge", "web", 1 );
   tree.root->policyMapCountersIs( PolicyMapKey( "core" ), nullptr );
   EXPECT_NO_THROW( mount() );
   EXPECT_TRUE( idle() );
   mgr().startWatching( consumer );
   EXPECT_NO_THROW( mgr().stopWatching() );
   EXPECT_TRUE( idle() );
   tree.addClass( "edge", "voice", 2 );
   EXPECT_EQ( shortKey( "edge", "voice" ), 2U );
   EXPECT_THROW( tree.root->policyMapCountersIs( PolicyMapKey( "lab" ), nullptr ),
                 Quon::NullPointerException ); // Who makes one while idle is told.
   mgr().startWatching( consumer );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
}

TEST_F( PbrCountersMgrTest, MountsThatAreCompletedAgainLeaveTheIdleMachineAlone ) {
   tree.addClass( "edge", "web" );
   mount();
   const auto machine = mgr().compressedKeyTableSm();
   mgr().onMountsComplete( entities, shared );
   EXPECT_EQ( mgr().compressedKeyTableSm(), machine );
   EXPECT_TRUE( idle() );
   mgr().startWatching( newConsumer() );
   mgr().onMountsComplete( entities, shared );
   EXPECT_TRUE( idle() );
}

// Point queries -----------------------------------------------------------------------------------

TEST_F( PbrCountersMgrTest, AQueryReadsTheStatusAndReturnsTheKeysAsGiven ) {
   const auto data = tree.addClass( "edge", "web", 7 );
   mount();
   mgr().shortKeys()->shortKeyDelAll(); // The table plays no part.
   const PbrCountersKey key = longKey( "edge", "web" );
   const PbrCounters found = mgr().counters( 12345, key );
   EXPECT_EQ( found.shortKey(), 12345U );
   EXPECT_EQ( found.longKey(), key );
   EXPECT_EQ( found.data(), data );
   EXPECT_FALSE( found.deletedKey() );
   EXPECT_TRUE( mgr().shortKeys()->shortKey().empty() );
   mgr().startWatching( newConsumer() );
   EXPECT_EQ( mgr().counters( 12345, key ), found );
}

TEST_F( PbrCountersMgrTest, AQueryForAMissingClassReturnsTheKeysWithoutData ) {
   tree.addPolicy( "edge" );
   mount();
   const PbrCountersKey key = longKey( "edge", "web" );
   EXPECT_EQ( mgr().counters( 5, key ), PbrCounters( 5, key, nullptr, false ) );
   tree.addClassWithoutCounters( "edge", "web" );
   EXPECT_EQ( mgr().counters( 5, key ), PbrCounters( 5, key, nullptr, false ) );
}

TEST_F( PbrCountersMgrTest, AQueryForAMissingPolicyMapReturnsTheKeysWithoutData ) {
   mount();
   mgr().startWatching( newConsumer() );
   const PbrCountersKey key = longKey( "edge", "web" );
   EXPECT_EQ( mgr().counters( 5, key ), PbrCounters( 5, key, nullptr, false ) );
   tree.root->policyMapCountersIs( PolicyMapKey( "edge" ), nullptr );
   EXPECT_EQ( mgr().counters( 5, key ), PbrCounters( 5, key, nullptr, false ) );
}

TEST_F( PbrCountersMgrTest, QueriesThatDifferOnlyInTheAclRuleReturnTheSameData ) {
   const auto data = tree.addClass( "edge", "web", 7 );
   mount();
   const PbrCountersKey one( PolicyMapKey( "edge" ), "web", "permit any" );
   const PbrCountersKey other( PolicyMapKey( "edge" ), "web", "deny any" );
   EXPECT_EQ( mgr().counters( 1, one ).data(), data );
   EXPECT_EQ( mgr().counters( 1, other ).data(), data );
   EXPECT_EQ( mgr().counters( 1, other ).longKey(), other );
}

} // namespace
} // namespace VeloSdkRpc::test
