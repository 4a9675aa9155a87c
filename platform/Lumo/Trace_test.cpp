#include <source_location>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "Lumo/AllocationCount.h"
#include "Lumo/CapturingTraceSink.h"
#include "Lumo/ThrowingAssertionHandler.h"
#include "Lumo/Trace.h"

namespace Lumo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A handle of the test's own name, so that no test sees what another one switched.
class TraceTest : public testing::Test {
 protected:
   static std::string ownName() {
      return testing::UnitTest::GetInstance()->current_test_info()->name();
   }

   const Ptr< TraceHandle > handle = Platform::getDebugHandler( ownName() );
};

TEST_F( TraceTest, AHandleStartsWithoutAnyLevel ) {
   EXPECT_EQ( handle->levels(), 0U );
   EXPECT_EQ( handle->name(), ownName() );
}

TEST_F( TraceTest, EachLevelIsSwitchedOnItsOwn ) {
   for ( int on = 0; on <= kLastTraceLevel; ++on ) {
      handle->levelsIs( traceLevels( on ) );
      for ( int level = 0; level <= kLastTraceLevel; ++level ) {
         EXPECT_EQ( handle->enabled( level ), level == on );
      }
   }
}

TEST_F( TraceTest, ARangeOfLevelsIncludesBothEnds ) {
   EXPECT_EQ( traceLevels( 0 ), 0x1U );
   EXPECT_EQ( traceLevels( 7, 8 ), 0x180U );
   EXPECT_EQ( traceLevels( 0, 31 ), 0xffffffffU );
   EXPECT_EQ( traceLevels( 31 ), 0x80000000U );
}

TEST_F( TraceTest, LevelsBeyondTheMaskAreRefused ) {
   const ThrowingAssertionHandler assertions;
   EXPECT_THROW( static_cast< void >( traceLevels( 7, 32 ) ), AssertionThrown );
   EXPECT_THROW( static_cast< void >( traceLevels( 8, 7 ) ), AssertionThrown );
   EXPECT_THROW( static_cast< void >( traceLevels( -1 ) ), AssertionThrown );
}

TEST_F( TraceTest, HandlesOfOneNameAreOne ) {
   EXPECT_EQ( Platform::getDebugHandler( ownName(), false ), handle );
   EXPECT_NE( Platform::getDebugHandler( ownName() + "/other" ), handle );
}

TEST_F( TraceTest, LevelsAreSwitchedByNameForHandlesThatExistOrAreStillToCome ) {
   const TraceLevelsScope scope;
   traceLevelsIs( ownName(), traceLevels( 3 ) );
   traceLevelsIs( ownName() + "/later", traceLevels( 4 ) );
   EXPECT_EQ( handle->levels(), traceLevels( 3 ) );
   EXPECT_EQ( Platform::getDebugHandler( ownName() + "/later" )->levels(), traceLevels( 4 ) );
}

TEST_F( TraceTest, TheStarSwitchesAllHandlesAndTheLastCallWins ) {
   const TraceLevelsScope scope;
   traceLevelsIs( ownName(), traceLevels( 3 ) );
   traceLevelsIs( "*", traceLevels( 5 ) );
   EXPECT_EQ( handle->levels(), traceLevels( 5 ) );
   EXPECT_EQ( Platform::getDebugHandler( ownName() + "/later" )->levels(), traceLevels( 5 ) );
   traceLevelsIs( ownName(), 0 );
   EXPECT_EQ( handle->levels(), 0U );
}

TEST_F( TraceTest, AScopePutsAllLevelsBack ) {
   handle->levelsIs( traceLevels( 2 ) );
   Ptr< TraceHandle > newcomer;
   {
      const TraceLevelsScope scope;
      traceLevelsIs( "*", traceLevels( 0, 9 ) );
      newcomer = Platform::getDebugHandler( ownName() + "/newcomer" );
      EXPECT_TRUE( newcomer->enabled( 9 ) );
   }
   EXPECT_EQ( handle->levels(), traceLevels( 2 ) );
   EXPECT_EQ( newcomer->levels(), 0U );
   EXPECT_EQ( Platform::getDebugHandler( ownName() + "/later" )->levels(), 0U );
}

TEST_F( TraceTest, AMessageReachesTheSinkWithItsHandleLevelFunctionAndText ) {
   const CapturingTraceSink traces( ownName(), traceLevels( 7 ) );
   LUMO_TRACE( *handle, 7, "Processing short key {} with flags {:#x}", 42, 3 );
   ASSERT_EQ( traces.messages.size(), 1U );
   const CapturingTraceSink::Message & message = traces.messages.front();
   EXPECT_EQ( message.handle, ownName() );
   EXPECT_EQ( message.level, 7 );
   EXPECT_THAT( message.function, HasSubstr( "TestBody" ) );
   EXPECT_EQ( message.text, "Processing short key 42 with flags 0x3" );
   EXPECT_TRUE( traces.has( 7, "Processing short key 42 with flags 0x3" ) );
   EXPECT_FALSE( traces.has( 8, "Processing short key 42 with flags 0x3" ) );
   EXPECT_FALSE( traces.has( 7, "Processing short key" ) );
}

TEST_F( TraceTest, ADisabledMessageEvaluatesNoArgumentAndAllocatesNothing ) {
   const CapturingTraceSink traces( ownName(), traceLevels( 6 ) );
   int evaluated = 0;
   const std::uint64_t before = allocationCount();
   for ( const int level : { 0, 5, 7, 31 } ) {
      LUMO_TRACE( *handle, level, "{} {}", ++evaluated, std::string( 1000, 'x' ) );
   }
   EXPECT_EQ( allocationCount(), before );
   EXPECT_EQ( evaluated, 0 );
   EXPECT_TRUE( traces.messages.empty() );
   LUMO_TRACE( *handle, 6, "{}", ++evaluated );
   EXPECT_EQ( evaluated, 1 );
}

TEST_F( TraceTest, TheHandleExpressionIsEvaluatedOnce ) {
   const CapturingTraceSink traces( ownName() );
   int evaluated = 0;
   LUMO_TRACE( ( ++evaluated, *handle ), 1, "enabled" );
   EXPECT_EQ( evaluated, 1 );
}

TEST_F( TraceTest, TracingIsOneStatement ) {
   const CapturingTraceSink traces( ownName() );
   if ( traces.messages.empty() )
      LUMO_TRACE( *handle, 1, "then" );
   else
      LUMO_TRACE( *handle, 1, "else" );
   EXPECT_TRUE( traces.has( 1, "then" ) );
   EXPECT_EQ( traces.messages.size(), 1U );
}

TEST_F( TraceTest, FmtraceTellsTheLocationThatItIsGiven ) {
   const CapturingTraceSink traces( ownName(), traceLevels( 8 ) );
   const TraceHandle & direct = *handle;
   fmtrace( direct, 8, std::source_location::current(), "entry of {}", "doInputScan" );
   fmtrace( direct, 9, std::source_location::current(), "not enabled" );
   ASSERT_EQ( traces.messages.size(), 1U );
   EXPECT_EQ( traces.messages[0].text, "entry of doInputScan" );
   EXPECT_THAT( traces.messages[0].function, HasSubstr( "TestBody" ) );
}

TEST_F( TraceTest, CapturesMayBeNestedAndTheInnerOneHears ) {
   const CapturingTraceSink outer( ownName(), traceLevels( 1 ) );
   {
      const CapturingTraceSink inner( ownName(), traceLevels( 2 ) );
      LUMO_TRACE( *handle, 1, "outer only" );
      LUMO_TRACE( *handle, 2, "two" );
      EXPECT_EQ( inner.count( 2, "two" ), 1U );
      EXPECT_EQ( inner.messages.size(), 1U );
   }
   LUMO_TRACE( *handle, 1, "one" );
   EXPECT_EQ( outer.count( 1, "one" ), 1U );
   EXPECT_EQ( outer.messages.size(), 1U );
}

TEST_F( TraceTest, WithoutASinkALineGoesToStandardError ) {
   handle->levelsIs( traceLevels( 6 ) );
   testing::internal::CaptureStderr();
   LUMO_TRACE( *handle, 6, "filter failed: {}", std::string( "a\0b", 3 ) );
   const std::string line = testing::internal::GetCapturedStderr();
   EXPECT_THAT( line, testing::StartsWith( ownName() + "/6 " ) );
   EXPECT_THAT( line, HasSubstr( "Trace_test.cpp:" ) );
   EXPECT_THAT( line, testing::EndsWith( ": filter failed: " + std::string( "a\0b", 3 ) + "\n" ) );
}

TEST_F( TraceTest, LevelsMayBeSwitchedWhileAnotherThreadTraces ) {
   const CapturingTraceSink traces( ownName(), 0 );
   std::thread switches( [] {
      for ( int i = 0; i < 1000; ++i ) {
         const TraceLevelsScope scope;
         traceLevelsIs( ownName(), traceLevels( i % 2 ) );
         Platform::getDebugHandler( ownName() );
      }
   } );
   for ( int i = 0; i < 1000; ++i ) { LUMO_TRACE( *handle, 1, "at some point" ); }
   switches.join();
   EXPECT_EQ( handle->levels(), 0U );
}

} // namespace
} // namespace Lumo
