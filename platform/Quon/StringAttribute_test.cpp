#include "Quon/StringAttribute.h"

#include <string>

#include <gtest/gtest.h>

namespace Quon::test {
namespace {

TEST( StringAttributeTest, ATextOfTheMaximumLengthIsAccepted ) {
   const String longest( std::string( kMaxStringLength, 'x' ) );
   EXPECT_EQ( checkedString( longest ), longest );
   EXPECT_EQ( checkedString( "eight by", 8 ), "eight by" );
}

TEST( StringAttributeTest, ALongerTextIsRefusedWithTheRangeError ) {
   try {
      checkedString( "nine byte", 8 );
      FAIL() << "accepted";
   } catch ( const RangeException & error ) {
      EXPECT_STREQ( error.what(), "Quon::String::bytes > maxLength() not allowed" );
   }
   EXPECT_THROW( checkedString( std::string( kMaxStringLength + 1, 'x' ) ), RangeException );
}

} // namespace
} // namespace Quon::test
