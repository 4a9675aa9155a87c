#include "agent/ConfigFile.h"

#include "agent/OptionsError.h"

#include <gmock/gmock.h>
#include <sstream>

namespace VeloAgent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector< Setting > settings( const std::string & text ) {
   std::istringstream in( text );
   return settingsFrom( in, "velo.conf" );
}

std::string complaintAboutFile( const std::string & text ) {
   try {
      settings( text );
   } catch ( const OptionsError & error ) { return error.what(); }
   return "none";
}

TEST( ConfigFile, ALineIsANameAndAValue ) {
   EXPECT_THAT( settings( "rate = 100\n  table=inet/filter  \n" ),
                ElementsAre( Setting{ "rate", "100", "velo.conf:1" },
                             Setting{ "table", "inet/filter", "velo.conf:2" } ) );
}

TEST( ConfigFile, TheLastLineNeedsNoEnd ) {
   EXPECT_THAT( settings( "rate = 1" ), ElementsAre( Setting{ "rate", "1", "velo.conf:1" } ) );
}

TEST( ConfigFile, CommentsAndEmptyLinesAreSkippedAndCounted ) {
   EXPECT_THAT( settings( "# one\n\n; three\nrate = 1 # four\r\n" ),
                ElementsAre( Setting{ "rate", "1", "velo.conf:4" } ) );
   EXPECT_THAT( settings( "" ), IsEmpty() );
}

TEST( ConfigFile, OnlyABlankMakesAComment ) {
   EXPECT_EQ( settings( "listen = unix:/a#b;c" )[0].value, "unix:/a#b;c" );
}

TEST( ConfigFile, QuotesKeepEverythingInside ) {
   EXPECT_EQ( settings( R"(table = " a # \"b\" \\ = " # a comment)" )[0].value,
              R"( a # "b" \ = )" );
   EXPECT_EQ( settings( "table = \"\"" )[0].value, "" );
}

TEST( ConfigFile, AValueMayBeEmptyAndMayHoldEquals ) {
   EXPECT_EQ( settings( "table =" )[0].value, "" );
   EXPECT_EQ( settings( "table = # nothing" )[0].value, "" );
   EXPECT_EQ( settings( "table = a=b" )[0].value, "a=b" );
}

TEST( ConfigFile, ALineThatIsNoneIsNamed ) {
   EXPECT_EQ( complaintAboutFile( "rate = 1\nfast\n" ),
              "velo.conf:2: \"fast\" is not NAME = VALUE" );
   EXPECT_EQ( complaintAboutFile( "= 1" ), "velo.conf:1: \"= 1\" is not NAME = VALUE" );
   EXPECT_EQ( complaintAboutFile( "[agent]" ), "velo.conf:1: \"[agent]\" is not NAME = VALUE" );
}

TEST( ConfigFile, QuotesThatDoNotFitAreNamed ) {
   EXPECT_EQ( complaintAboutFile( "table = \"a" ), "velo.conf:1: the closing quote is missing" );
   EXPECT_EQ( complaintAboutFile( "table = \"a\\\"" ),
              "velo.conf:1: the closing quote is missing" );
   EXPECT_EQ( complaintAboutFile( "table = \"a\" b" ),
              "velo.conf:1: something follows the closing quote" );
}

TEST( ConfigFile, ANameThatIsThereTwiceIsNamed ) {
   EXPECT_EQ( complaintAboutFile( "rate = 1\nseed = 1\nrate = 2\n" ),
              "velo.conf:3: rate stands in line 1 already" );
}

} // namespace
} // namespace VeloAgent
