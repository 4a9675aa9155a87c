#include "Quon/Text.h"

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/ParseError.h"
#include "Quon/TextTestTypes.h"

namespace Quon::test {
namespace {

using testing::HasSubstr;

TEST( TextTest, AValueNamesItsTypeAndItsAttributesInOrder ) {
   EXPECT_EQ( text( Key( "edge", 7 ) ), "Value('Test::Key', ** {'name': 'edge', 'rule': 7})" );
}

TEST( TextTest, NestedValuesOptionalsAndNullPointersPrintInPlace ) {
   Record record;
   record.key = Key( "edge", 7 );
   EXPECT_EQ( text( record ),
              "Value('Test::Record', ** {'id': 0, 'key': Value('Test::Key', ** {'name': 'edge', "
              "'rule': 7}), 'limit': None, 'data': None, 'balance': 0, 'live': False})" );
}

TEST( TextTest, AnEntityPrintsAsASequence ) {
   Record record;
   record.data = Lumo::makeNode< Data >( "gold", Key( "x", 1 ) );
   EXPECT_THAT( text( record ),
                HasSubstr( "'data': Value('Test::Data', * ['gold', Value('Test::Key', ** {'name': "
                           "'x', 'rule': 1})])" ) );
   EXPECT_EQ( text( *record.data ), text( record.data ) );
}

TEST( TextTest, ASetOfBitsPrintsThroughItsGettersAndReadsThroughItsSetters ) {
   EXPECT_EQ( text( Flags() ), "Value('Test::Flags', ** {'first': False, 'second': False})" );
   const char * const both = "Value('Test::Flags', ** {'first': True, 'second': True})";
   EXPECT_EQ( text( fromText< Flags >( both ) ), both );
   EXPECT_EQ( fromText< Flags >( both ).bits, 3 );
}

TEST( TextTest, AValueWithoutAttributesHasAnEmptyFrame ) {
   EXPECT_EQ( text( Empty() ), "Value('Test::Empty', ** {})" );
   fromText< Empty >( "Value('Test::Empty', ** {})" );
}

TEST( TextTest, StringsSurviveAnyBytes ) {
   std::string everyByte;
   for ( int byte = 255; byte >= 0; --byte ) { everyByte += static_cast< char >( byte ); }
   EXPECT_EQ( fromText< Lumo::String >( text( Lumo::String( everyByte ) ) ).view(), everyByte );
   EXPECT_EQ( text( Lumo::String( std::string_view( "\\ ' \" \n\r\t\0\x7f\xff", 12 ) ) ),
              R"('\\ \' " \n\r\t\x00\x7f\xff')" );
}

TEST( TextTest, IntegersKeepTheirLimits ) {
   const auto limit = std::numeric_limits< std::uint64_t >::max();
   EXPECT_EQ( text( limit ), "18446744073709551615" );
   EXPECT_EQ( fromText< std::uint64_t >( "18446744073709551615" ), limit );
   EXPECT_EQ( fromText< std::int64_t >( "-9223372036854775808" ),
              std::numeric_limits< std::int64_t >::min() );
   EXPECT_EQ( fromText< std::int8_t >( "-128" ), -128 );
   EXPECT_EQ( fromText< std::uint8_t >( "255" ), 255 );
}

TEST( TextTest, AnIntegerThatDoesNotFitIsAnError ) {
   EXPECT_THROW( fromText< std::uint64_t >( "18446744073709551616" ), ParseError );
   EXPECT_THROW( fromText< std::int64_t >( "9223372036854775808" ), ParseError );
   EXPECT_THROW( fromText< std::uint8_t >( "256" ), ParseError );
   EXPECT_THROW( fromText< std::int8_t >( "-129" ), ParseError );
   EXPECT_THROW( fromText< unsigned >( "-1" ), ParseError );
   EXPECT_THROW( fromText< unsigned >( std::string( 10000, '9' ) ), ParseError );
}

TEST( TextTest, OnlyTheSpellingThatPrintingMakesIsAccepted ) {
   for ( const char * number : { "", "007", "-0", "-07", "+1", " 1", "1 ", "0x1", "1.0", "1_0" } ) {
      EXPECT_THROW( fromText< int >( number ), ParseError ) << number;
   }
   for ( const char * string :
         { "edge", "\"edge\"", "'edge", "'", "'\\", "'\\'", "'\\x4", "'\\x'", "'\\x41'", "'\\x0a'",
           "'\\xFF'", "'\\q'", "'\n'", "'\xff'", "b'edge'", "'a''b'" } ) {
      EXPECT_THROW( fromText< Lumo::String >( string ), ParseError ) << string;
   }
   for ( const char * flag : { "", "true", "1", "Tru", "Truee", "None" } ) {
      EXPECT_THROW( fromText< bool >( flag ), ParseError ) << flag;
   }
   for ( const char * key : { "Value('Test::Key', **{'name': 'edge', 'rule': 7})",
                              "Value('Test::Key', ** {'rule': 7, 'name': 'edge'})",
                              "Value('Test::Key', ** {'name': 'edge'})",
                              "Value('Test::Key', ** {'name': 'edge', 'rule': 7}",
                              "Value('Test::Key', ** {'name': 'edge', 'rule': 7}))",
                              "Value('Test::Kez', ** {'name': 'edge', 'rule': 7})" } ) {
      EXPECT_THROW( fromText< Key >( key ), ParseError ) << key;
   }
}

/// Reads `text` as a `T` and returns the error that this must raise.
template< class T >
ParseError errorOf( std::string_view text ) {
   try {
      fromText< T >( text );
   } catch ( const ParseError & error ) { return error; }
   ADD_FAILURE() << "parsed: " << text;
   return ParseError( "", 0, "" );
}

TEST( TextTest, AParseErrorNamesPathPositionExpectedAndFound ) {
   const std::string valid = text( Record() );
   const std::size_t at = valid.find( "'name': ''" ) + 8;
   std::string broken = valid;
   broken.replace( at, 2, "7" );
   const ParseError error = errorOf< Record >( broken );
   EXPECT_EQ( error.path(), "key.name" );
   EXPECT_EQ( error.position(), at );
   EXPECT_STREQ( error.what(),
                 "attribute \"key.name\", position 73: expected a string in single quotes, found "
                 "\"7, 'rule': 0}), 'limit': ...\"" );
}

TEST( TextTest, AnErrorInTheOutermostFrameHasAnEmptyPath ) {
   const ParseError error = errorOf< Empty >( "Value('Test::Full', ** {})" );
   EXPECT_EQ( error.path(), "" );
   EXPECT_STREQ( error.what(), "position 0: expected \"Value('Test::Empty', ** {\", found "
                               "\"Value('Test::Full', ** {})\"" );
   EXPECT_STREQ( errorOf< Empty >( "" ).what(),
                 "position 0: expected \"Value('Test::Empty', ** {\", found the end of the text" );
}

TEST( TextTest, AnErrorInsideAnEntityNamesTheEntitysAttribute ) {
   Record record;
   record.data = Lumo::makeNode< Data >( "gold", Key( "x", 1 ) );
   std::string broken = text( record );
   broken.replace( broken.find( "'x'" ), 3, "None" );
   EXPECT_EQ( errorOf< Record >( broken ).path(), "data.key.name" );
}

TEST( TextTest, AMissingAttributeIsNamed ) {
   EXPECT_EQ( errorOf< Key >( "Value('Test::Key', ** {'name': 'edge'})" ).path(), "rule" );
}

TEST( TextTest, WhatASetterRefusesIsAParseErrorAtTheAttribute ) {
   const ParseError error =
      errorOf< Checked >( "Value('Test::Checked', ** {'name': 'longer than eight'})" );
   EXPECT_EQ( error.path(), "name" );
   EXPECT_EQ( error.position(), 35U );
   EXPECT_THAT( error.what(), HasSubstr( "Quon::String::bytes > maxLength() not allowed" ) );
}

TEST( TextTest, APartlyReadValueLeavesNothingBehind ) {
   Record record;
   record.data = Lumo::makeNode< Data >( "a class name that is not short", Key() );
   const std::string whole = text( record );
   ASSERT_EQ( Data::living, 1 );
   for ( std::size_t size = 0; size < whole.size(); ++size ) {
      EXPECT_THROW( fromText< Record >( whole.substr( 0, size ) ), ParseError );
      ASSERT_EQ( Data::living, 1 );
   }
   EXPECT_EQ( text( fromText< Record >( whole ) ), whole );
   EXPECT_EQ( Data::living, 1 );
}

TEST( TextTest, NestingIsBounded ) {
   const auto nested = []( unsigned depth ) {
      std::string text;
      for ( unsigned n = 0; n < depth; ++n ) { text += "Value('Test::Chain', * ["; }
      text += "None";
      for ( unsigned n = 0; n < depth; ++n ) { text += "])"; }
      return text;
   };
   using Chained = Lumo::Ptr< const Chain >;
   EXPECT_EQ( text( fromText< Chained >( nested( CharRange::kMaxNesting ) ) ),
              nested( CharRange::kMaxNesting ) );
   EXPECT_THAT( errorOf< Chained >( nested( 100000 ) ).what(),
                HasSubstr( "nested deeper than 64" ) );
}

TEST( TextTest, StreamsAndFmtPrintTheTextForm ) {
   const Key key( "edge", 7 );
   std::ostringstream os;
   os << std::hex << key;
   EXPECT_EQ( os.str(), text( key ) );
   EXPECT_EQ( fmt::format( "{}", key ), text( key ) );
   EXPECT_EQ( fmt::format( "{}", Flags() ), text( Flags() ) );
}

TEST( TextTest, AttributeNamesComeFromTheTable ) {
   EXPECT_THAT( kAttributeNames< Key >, testing::ElementsAre( "name", "rule" ) );
}

} // namespace
} // namespace Quon::test
