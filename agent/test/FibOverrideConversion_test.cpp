#include "agent/rpc/FibOverrideConversion.h"

#include "Routing/Fib/AnyVia.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <velo/rpc/v1/fib_overrides.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;

RC_GTEST_PROP( FibOverrideConversion, EveryOverrideIsReadAsItWasWritten, () ) {
   const auto value = Routing::Fib::test::anyOverride();
   v1::FibOverride message;
   toMessage( value, message );
   RC_ASSERT( overrideFrom( message ) == value );
   RC_ASSERT( matcherFrom( message.matcher() ) == value.matcher() );
}

RC_GTEST_PROP( FibOverrideConversion, AMessageThatWasWrittenIsWrittenTheSameAgain, () ) {
   v1::FibOverride first;
   toMessage( Routing::Fib::test::anyOverride(), first );
   v1::FibOverride second;
   toMessage( overrideFrom( first ), second );
   RC_ASSERT( first.DebugString() == second.DebugString() );
}

TEST( FibOverrideConversion, AnEmptyMessageStatesNothing ) {
   const auto value = overrideFrom( v1::FibOverride() );
   EXPECT_EQ( value, Routing::Fib::FibOverrideVia() );
   EXPECT_EQ( value.matcher().vrf(), "default" );
}

} // namespace
} // namespace VeloAgent
