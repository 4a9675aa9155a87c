#include "Quon/TraceHelper.h"

#include <ostream>

#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Quon/TextTestTypes.h"
#include "Quon/TraceHandle.h"

namespace Quon::test {
namespace {

/// Counts how often it is printed.
struct Counted {
   int * printed;
   friend std::ostream & operator<<( std::ostream & os, const Counted & counted ) {
      ++*counted.printed;
      return os << "counted";
   }
};

class TraceHelperTest : public testing::Test {
 protected:
   const TraceHandle handle{ "TraceHelperTest" };
   Lumo::CapturingTraceSink traces{ "TraceHelperTest", Lumo::traceLevels( 7 ) };
   int printed = 0;
};

TEST_F( TraceHelperTest, TheMessageIsEmittedWhenTheHelperGoes ) {
   {
      TraceHelper helper( handle, 7, "Some.cpp", 12, "someFunction" );
      helper.stream() << "class " << Lumo::String( "gold" ) << " has " << 7U << " packets, ";
      EXPECT_TRUE( traces.messages.empty() );
      helper.stream() << Key( "edge", 1 ) << ' ' << Counted{ &printed };
   }
   ASSERT_EQ( traces.messages.size(), 1U );
   EXPECT_EQ( traces.messages[0].text,
              "class gold has 7 packets, Value('Test::Key', ** {'name': 'edge', 'rule': 1}) "
              "counted" );
   EXPECT_EQ( traces.messages[0].function, "someFunction" );
   EXPECT_EQ( traces.messages[0].level, 7 );
}

TEST_F( TraceHelperTest, ADisabledMessageIsNeitherFormattedNorEmitted ) {
   TraceHelper( handle, 8, "Some.cpp", 12, "someFunction" ).stream() << Counted{ &printed };
   EXPECT_EQ( printed, 0 );
   EXPECT_TRUE( traces.messages.empty() );
}

} // namespace
} // namespace Quon::test
