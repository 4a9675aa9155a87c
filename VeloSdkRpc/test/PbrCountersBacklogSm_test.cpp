#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/detail/IlexPrint.h"
#include "VeloSdkRpc/test/BacklogMachineTest.h"

/// The rules of the machine that files every change into the backlog.

namespace VeloSdkRpc::test {
namespace {

using detail::ilexPrint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PbrCountersBacklogSmTest : public BacklogMachineTest {
 protected:
   using CountersValue = PbrCountersBacklogSm::CountersValue;
   using ShortKey = PbrCountersBacklogSm::ShortKey;

   bool isNovel( std::uint64_t key ) const { return static_cast< bool >( table->novelKey()[key] ); }

   static std::string inserted( const PbrCounters & record ) {
      return "into( backlog.backlog[ key ] ): inserting k1=" + ilexPrint( record.shortKey() ) +
             ", value=" + ilexPrint( record );
   }
};

// Events ------------------------------------------------------------------------------------------

TEST_F( PbrCountersBacklogSmTest, TheFirstEntryOnAnEmptyTableIsNovelKeyOne ) {
   start( kSynchronous );
   const auto counters = tree.addClass( "p", "A", 5 );
   EXPECT_EQ( table->nextKey(), 1U );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
   EXPECT_TRUE( isNovel( 1 ) );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, longKey( "p", "A" ), counters, false ) );
}

TEST_F( PbrCountersBacklogSmTest, TwoCountDataChangesFileTwiceUnderOneKey ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   table->clearNovelKeys();
   Lumo::CapturingTraceSink traces;
   tree.count( "p", "A", 1 );
   tree.count( "p", "A", 2 );
   EXPECT_EQ( filings( traces, 1 ), 2U );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
   EXPECT_EQ( table->nextKey(), 1U );
   EXPECT_FALSE( isNovel( 1 ) );
   EXPECT_THAT( backlog->backlog(), SizeIs( 1 ) );
}

TEST_F( PbrCountersBacklogSmTest, AKnownKeyThatChangesIsFiledWithoutTouchingTheTable ) {
   table->shortKeyIs( longKey( "p", "A" ), 40 );
   table->nextKeyIs( 50 );
   start( kSynchronous );
   const auto counters = tree.addClass( "p", "A" );
   EXPECT_EQ( record( 40 ), PbrCounters( 40, longKey( "p", "A" ), counters, false ) );
   EXPECT_EQ( table->nextKey(), 50U );
   EXPECT_THAT( table->novelKey(), IsEmpty() );
}

TEST_F( PbrCountersBacklogSmTest, ARemovedEntryIsFiledAsDeletedAndStaysNovel ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   tree.removeClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 0U );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, longKey( "p", "A" ), nullptr, true ) );
   EXPECT_TRUE( isNovel( 1 ) );
   EXPECT_EQ( table->nextKey(), 1U );
}

TEST_F( PbrCountersBacklogSmTest, ARemovedPolicyMapFilesOneDeletionPerClassInOrder ) {
   for ( const char * name : { "A", "B", "C", "D", "E" } ) { tree.addClass( "p", name ); }
   tree.addClass( "q", "A" );
   start( kSynchronous );
   std::vector< std::uint64_t > expected;
   for ( const std::string & name : classes( "p" ) ) {
      expected.push_back( shortKey( "p", name ) );
   }
   std::vector< std::uint64_t > deleted;
   const auto listening = onBacklog( [&]( std::uint64_t key, const PbrCounters * value ) {
      ASSERT_TRUE( value && value->deletedKey() );
      deleted.push_back( key );
   } );
   tree.removePolicy( "p" );
   EXPECT_EQ( deleted, expected );
   EXPECT_THAT( known(), SizeIs( 1 ) );
}

TEST_F( PbrCountersBacklogSmTest, AnEntryThatComesBackGetsAFreshKey ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   tree.removeClass( "p", "A" );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
   EXPECT_TRUE( record( 1 ).deletedKey() );
   EXPECT_FALSE( record( 2 ).deletedKey() );
   EXPECT_TRUE( isNovel( 2 ) );
}

TEST_F( PbrCountersBacklogSmTest, ARemovalWithoutAShortKeyRaisesAfterTheDeletionAndFilesNothing ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   table->shortKeyDelAll();
   backlog->backlogDelAll();
   Lumo::CapturingTraceSink traces;
   EXPECT_THROW( tree.removeClass( "p", "A" ), Quon::BadOptionalAccess );
   EXPECT_TRUE( traces.has( 7, "into( shortKeys.shortKey[ countersKey ] ): deleting k1=" +
                                  ilexPrint( longKey( "p", "A" ) ) ) );
   EXPECT_THAT( backlog->backlog(), IsEmpty() );
   EXPECT_FALSE( classMachine( "p", "A" ) );
   tree.addClass( "p", "A" ); // Everything is as if the class had never been.
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
}

TEST_F( PbrCountersBacklogSmTest, ClassesWithoutAShortKeyDoNotKeepTheirPeersFromBeingDeleted ) {
   for ( const char * name : { "A", "B", "C" } ) { tree.addClass( "p", name ); }
   start( kSynchronous );
   table->shortKeyDel( longKey( "p", "A" ) );
   EXPECT_THROW( tree.removePolicy( "p" ), Quon::BadOptionalAccess );
   EXPECT_THAT( known(), IsEmpty() );
   EXPECT_FALSE( child( "p" ) );
   std::size_t deleted = 0;
   for ( const auto & entry : backlog->backlog() ) { deleted += entry.value().deletedKey(); }
   EXPECT_EQ( deleted, 2U );
}

TEST_F( PbrCountersBacklogSmTest, ANewKeyIsTracedStepByStep ) {
   start( kSynchronous );
   tree.addPolicy( "p" );
   Lumo::CapturingTraceSink traces;
   const auto counters = tree.addClass( "p", "A" );
   const std::string value = ilexPrint( CountersValue( counters ) );
   const std::string key = ilexPrint( longKey( "p", "A" ) );
   EXPECT_TRUE( value.starts_with( "Optional( " ) && value.ends_with( " )" ) );
   EXPECT_THAT(
      textsAt( traces, 7 ),
      ElementsAre(
         "input = from( root.policyMapCounters[].classCounters[].{ countData } ): policyKey=" +
            ilexPrint( PolicyMapKey( "p" ) ) + " name=A countersValue=" + value,
         "Line 20: merge( input ): countersValue=" + value + " countersKey=" + key +
            " currentKey=None",
         "Line 22: merge( ivx_pipeline0 ): countersValue=" + value + " countersKey=" + key,
         "into( shortKeys.nextKey ): inserting value=1",
         "into( shortKeys.shortKey[ countersKey ] ): inserting k1=" + key + ", value=1",
         "into( shortKeys.novelKey[ nextKey ] ): inserting k1=1",
         "Line 22: merge( ivx_pipeline3, ivx_pipeline4 ): key=1 countersValue=" + value +
            " countersKey=" + key,
         "Line 20: merge( ivx_pipeline5, ivx_pipeline1 ): key=1 isDeleted=false countersValue=" +
            value + " countersKey=" + key,
         inserted( record( 1 ) ) ) );
   EXPECT_TRUE( traces.has( 8, "k: A" ) );
}

TEST_F( PbrCountersBacklogSmTest, AKnownKeyIsTracedStepByStep ) {
   const auto counters = tree.addClass( "p", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.count( "p", "A", 1 );
   const std::string value = ilexPrint( CountersValue( counters ) );
   const std::string key = ilexPrint( longKey( "p", "A" ) );
   EXPECT_THAT(
      textsAt( traces, 7 ),
      ElementsAre(
         "input = from( root.policyMapCounters[].classCounters[].{ countData } ): policyKey=" +
            ilexPrint( PolicyMapKey( "p" ) ) + " name=A countersValue=" + value,
         "Line 20: merge( input ): countersValue=" + value + " countersKey=" + key +
            " currentKey=Optional( 1 )",
         "Line 22: merge( ivx_pipeline0 ): countersValue=" + value + " countersKey=" + key +
            " currentKey=Optional( 1 )",
         "Line 22: merge( ivx_pipeline3, ivx_pipeline4 ): key=1 countersValue=" + value +
            " countersKey=" + key,
         "Line 20: merge( ivx_pipeline5, ivx_pipeline1 ): key=1 isDeleted=false countersValue=" +
            value + " countersKey=" + key,
         inserted( record( 1 ) ) ) );
}

TEST_F( PbrCountersBacklogSmTest, ARemovalIsTracedStepByStep ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   Lumo::CapturingTraceSink traces;
   tree.removeClass( "p", "A" );
   const std::string key = ilexPrint( longKey( "p", "A" ) );
   EXPECT_THAT(
      textsAt( traces, 7 ),
      ElementsAre(
         "input = from( root.policyMapCounters[].classCounters[].{ countData } ): policyKey=" +
            ilexPrint( PolicyMapKey( "p" ) ) + " name=A countersValue=None",
         "Line 20: merge( input ): countersValue=None countersKey=" + key +
            " currentKey=Optional( 1 )",
         "into( shortKeys.shortKey[ countersKey ] ): deleting k1=" + key,
         "Line 20: merge( ivx_pipeline5, ivx_pipeline1 ): key=1 isDeleted=true "
         "countersValue=None countersKey=" +
            key,
         inserted( record( 1 ) ) ) );
}

TEST_F( PbrCountersBacklogSmTest, TheTableIsWrittenInOrderBeforeTheRecord ) {
   start( kSynchronous );
   tree.addPolicy( "p" );
   const auto listening = onBacklog( [&]( std::uint64_t key, const PbrCounters * ) {
      EXPECT_EQ( shortKey( "p", "A" ), key );
      EXPECT_EQ( table->nextKey(), key );
      EXPECT_TRUE( isNovel( key ) );
   } );
   ActsOnTrace probe( "into( shortKeys.", [&, step = 0]() mutable {
      EXPECT_EQ( table->nextKey(), step == 0 ? 0U : 1U );
      EXPECT_EQ( shortKey( "p", "A" ), step < 2 ? 0U : 1U );
      EXPECT_FALSE( isNovel( 1 ) );
      ++step;
   } );
   tree.addClass( "p", "A" );
   EXPECT_EQ( probe.times, 3 );
}

TEST_F( PbrCountersBacklogSmTest, TheShortKeyGoesBeforeTheDeletionIsFiled ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   int heard = 0;
   const auto listening = onBacklog( [&]( std::uint64_t, const PbrCounters * ) {
      ++heard;
      EXPECT_EQ( shortKey( "p", "A" ), 0U );
   } );
   tree.removeClass( "p", "A" );
   EXPECT_EQ( heard, 1 );
}

TEST_F( PbrCountersBacklogSmTest, ThePipelinesCanBeEnteredOneByOne ) {
   start( kSynchronous );
   const PbrCountersKey key = longKey( "p", "A" );
   const CountersValue value( Lumo::makeNode< CountersData >( "A" ) );
   sm->eventToIvx_pipeline2( 7, true, CountersValue(), key );
   EXPECT_EQ( record( 7 ), PbrCounters( 7, key, nullptr, true ) );
   sm->eventToIvx_pipeline5( 8, value, key );
   EXPECT_EQ( record( 8 ), PbrCounters( 8, key, *value, false ) );
   sm->eventToIvx_pipeline4( value, key, ShortKey( 9 ) );
   EXPECT_EQ( record( 9 ).shortKey(), 9U );
   sm->eventToIvx_pipeline3( value, key );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, key, *value, false ) );
   sm->eventToIvx_pipeline0( value, key, ShortKey( 1 ) );
   EXPECT_EQ( table->nextKey(), 1U );
   sm->eventToIvx_pipeline0( value, key, ShortKey() );
   EXPECT_EQ( table->nextKey(), 2U );
   sm->eventToIvx_pipeline1( CountersValue(), key, ShortKey( 2 ) );
   EXPECT_TRUE( record( 2 ).deletedKey() );
   EXPECT_THROW( sm->eventToIvx_pipeline1( CountersValue(), key, ShortKey() ),
                 Quon::BadOptionalAccess );
}

// Entries without an entity, and replaced ones ----------------------------------------------------

TEST_F( PbrCountersBacklogSmTest, NullEntriesHaveNoMachineAndFileNothing ) {
   tree.addClassWithoutCounters( "p", "A" );
   tree.root->policyMapCountersIs( PolicyMapKey( "null" ), nullptr );
   start( kSynchronous );
   EXPECT_TRUE( sm->ready() );
   EXPECT_FALSE( classMachine( "p", "A" ) );
   EXPECT_FALSE( child( "null" ) );
   tree.addClassWithoutCounters( "p", "B" );
   tree.removeClass( "p", "B" );
   tree.root->policyMapCountersIs( PolicyMapKey( "null too" ), nullptr );
   tree.removePolicy( "null too" );
   EXPECT_THAT( backlog->backlog(), IsEmpty() );
   EXPECT_THAT( known(), IsEmpty() );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
}

TEST_F( PbrCountersBacklogSmTest, AnEntryThatBecomesNullKeepsItsMachineUntilItGoes ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   const auto machine = classMachine( "p", "A" );
   tree.addClassWithoutCounters( "p", "A" );
   EXPECT_EQ( classMachine( "p", "A" ), machine );
   EXPECT_FALSE( record( 1 ).deletedKey() );
   tree.removeClass( "p", "A" );
   EXPECT_FALSE( classMachine( "p", "A" ) );
   EXPECT_TRUE( record( 1 ).deletedKey() );
}

TEST_F( PbrCountersBacklogSmTest, AClassWhoseEntityChangedIsRefusedAndTheOldMachineStays ) {
   const auto old = tree.addClass( "p", "A" );
   start( kSynchronous );
   EXPECT_THROW( tree.addClass( "p", "A" ), Quon::ReinstantiatingException );
   EXPECT_EQ( classMachine( "p", "A" )->en(), old );
   EXPECT_EQ( record( 1 ).data(), old );
   tree.removeClass( "p", "A" );
   tree.addClass( "p", "A" );
   EXPECT_EQ( shortKey( "p", "A" ), 2U );
}

TEST_F( PbrCountersBacklogSmTest, CountersThatAreThereButNullAreFiledWithoutData ) {
   start( kSynchronous );
   const CountersValue null( Lumo::Ptr< const CountersData >{} );
   sm->eventToInput( PolicyMapKey( "p" ), "A", null );
   EXPECT_EQ( shortKey( "p", "A" ), 1U );
   EXPECT_EQ( record( 1 ), PbrCounters( 1, longKey( "p", "A" ), nullptr, false ) );
   sm->eventToInput( PolicyMapKey( "p" ), "A", null );
   EXPECT_EQ( table->nextKey(), 1U );
   EXPECT_THAT( backlog->backlog(), SizeIs( 1 ) );
}

} // namespace
} // namespace VeloSdkRpc::test
