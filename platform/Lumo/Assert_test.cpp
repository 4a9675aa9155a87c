#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Assert.h"
#include "Lumo/Thread.h"
#include "Lumo/ThrowingAssertionHandler.h"

namespace Lumo {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

const bool no = false;

TEST( AssertTest, WhatHoldsIsSilentAndEvaluatedOnce ) {
   const ThrowingAssertionHandler assertions;
   int evaluated = 0;
   LUMO_ASSERT( ++evaluated );
   LUMO_FMASSERT( ++evaluated, "never built {}", ++evaluated );
   EXPECT_EQ( evaluated, 2 );
   EXPECT_TRUE( assertions.failures().empty() );
}

TEST( AssertTest, TheConditionIsToldAsItIsWritten ) {
   const ThrowingAssertionHandler assertions;
   const std::vector< int > version_{ 1 };
   EXPECT_THROW( LUMO_ASSERT( no && "We missed notifications" ), AssertionThrown );
   EXPECT_THROW( LUMO_ASSERT( version_.size() == 2 ), AssertionThrown );
   EXPECT_THROW( LUMO_ASSERT( std::is_same_v< int, char > ), AssertionThrown );
   ASSERT_EQ( assertions.failures().size(), 3U );
   EXPECT_EQ( assertions.failures()[0].condition(), "no && \"We missed notifications\"" );
   EXPECT_EQ( assertions.failures()[1].condition(), "version_.size() == 2" );
   EXPECT_EQ( assertions.failures()[2].condition(), "std::is_same_v< int, char >" );
   EXPECT_EQ( assertions.failures()[0].message(), "" );
}

TEST( AssertTest, TheMessageIsFormattedWhenTheConditionFails ) {
   const ThrowingAssertionHandler assertions;
   int built = 0;
   EXPECT_THROW( LUMO_FMASSERT( no, "short key {} of {}", 42, ++built ), AssertionThrown );
   EXPECT_EQ( assertions.failures().back().condition(), "no" );
   EXPECT_EQ( assertions.failures().back().message(), "short key 42 of 1" );
}

TEST( AssertTest, TheTextGivesPlaceConditionAndMessage ) {
   const ThrowingAssertionHandler assertions;
   const int line = __LINE__ + 1;
   EXPECT_THROW( LUMO_FMASSERT( no, "{}", "why" ), AssertionThrown );
   EXPECT_THROW( LUMO_ASSERT( no ), AssertionThrown );
   const std::string text = assertions.failures()[0].what();
   EXPECT_THAT( text, HasSubstr( fmt::format( "Assert_test.cpp:{}: ", line ) ) );
   EXPECT_THAT( text, HasSubstr( "TestBody" ) );
   EXPECT_THAT( text, EndsWith( ": assertion failed: no: why" ) );
   EXPECT_THAT( assertions.failures()[1].what(), EndsWith( ": assertion failed: no" ) );
}

TEST( AssertTest, AnAssertionIsAnExpression ) {
   const auto checked = []( int n ) { return LUMO_ASSERT( n > 0 ), n; };
   EXPECT_EQ( checked( 1 ), 1 );
}

TEST( AssertTest, ADebugAssertionIsEvaluatedInDebugBuildsOnly ) {
   const ThrowingAssertionHandler assertions;
   int evaluated = 0;
   LUMO_DEBUG_ASSERT( ++evaluated );
   EXPECT_EQ( evaluated, kDebugChecks ? 1 : 0 );
   if ( kDebugChecks ) {
      EXPECT_THROW( LUMO_DEBUG_ASSERT( no && "reason" ), AssertionThrown );
      EXPECT_EQ( assertions.failures().back().condition(), "no && \"reason\"" );
   } else {
      EXPECT_NO_THROW( LUMO_DEBUG_ASSERT( no && "reason" ) );
   }
}

TEST( AssertTest, HandlersMayBeNested ) {
   const ThrowingAssertionHandler outer;
   {
      const ThrowingAssertionHandler inner;
      EXPECT_THROW( LUMO_ASSERT( no ), AssertionThrown );
      EXPECT_EQ( inner.failures().size(), 1U );
   }
   EXPECT_TRUE( outer.failures().empty() );
   EXPECT_THROW( LUMO_ASSERT( no ), AssertionThrown );
   EXPECT_EQ( outer.failures().size(), 1U );
}

TEST( AssertTest, InstallingAHandlerReturnsTheOneBefore ) {
   ThrowingAssertionHandler handler;
   EXPECT_EQ( assertionHandlerIs( nullptr ), &handler );
   EXPECT_EQ( assertionHandlerIs( &handler ), nullptr );
}

TEST( AssertDeathTest, WithoutAHandlerTheTextIsPrintedAndTheProcessAborts ) {
   EXPECT_EXIT( LUMO_FMASSERT( no && "reason", "message {}", 7 ),
                testing::KilledBySignal( SIGABRT ),
                "Assert_test.cpp:.*assertion failed: no && \"reason\": message 7" );
}

/// Returns, which a handler is not supposed to do.
class Indifferent final : public AssertionHandler {
 public:
   void assertionFailed( const AssertionFailure & ) override {}
};

TEST( AssertDeathTest, AHandlerThatReturnsDoesNotSaveTheProcess ) {
   EXPECT_EXIT(
      {
         Indifferent indifferent;
         assertionHandlerIs( &indifferent );
         LUMO_ASSERT( no && "reason" );
      },
      testing::KilledBySignal( SIGABRT ), "assertion failed: no && \"reason\"" );
}

/// The role of the event loop, given back afterwards.
class ThreadTest : public testing::Test {
 protected:
   void SetUp() override {
      if ( !kDebugChecks ) { GTEST_SKIP() << "built without debug checks"; }
      Impl::checkEventLoopThread();
   }
   /// Whether another thread, after `preparing`, counts as the event loop.
   template< class Preparation >
   static bool anotherThreadMayTouch( Preparation preparing ) {
      const ThrowingAssertionHandler assertions;
      std::thread( [&] {
         preparing();
         try {
            Impl::checkEventLoopThread();
         } catch ( const AssertionThrown & ) {}
      } ).join();
      return assertions.failures().empty();
   }
};

TEST_F( ThreadTest, TheFirstThreadIsTheLoop ) { EXPECT_NO_THROW( Impl::checkEventLoopThread() ); }

TEST_F( ThreadTest, AnotherThreadIsNotTheLoop ) {
   EXPECT_FALSE( anotherThreadMayTouch( [] {} ) );
}

TEST_F( ThreadTest, TheRoleIsPassedOnAndGivenBack ) {
   unsigned long before = 0;
   EXPECT_TRUE( anotherThreadMayTouch( [&] { before = Impl::eventLoopThreadIsCurrent(); } ) );
   {
      const ThrowingAssertionHandler assertions;
      EXPECT_THROW( Impl::checkEventLoopThread(), AssertionThrown );
   }
   Impl::eventLoopThreadIs( before );
   EXPECT_NO_THROW( Impl::checkEventLoopThread() );
}

TEST_F( ThreadTest, AFreeRoleGoesToTheFirstThreadThatTouchesAnything ) {
   Impl::eventLoopThreadIs( 0 );
   EXPECT_TRUE( anotherThreadMayTouch( [] {} ) );
   Impl::eventLoopThreadIsCurrent();
}

} // namespace
} // namespace Lumo
