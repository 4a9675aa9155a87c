#include "Routing/Fib/Fib.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/EntityTypes.h"
#include "Quon/EntityWatcher.h"
#include "Quon/Exceptions.h"
#include "Quon/ParseError.h"
#include "Quon/StringAttribute.h"

namespace Routing::Fib::test {
namespace {

using Ipnet::IntfId;
using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kNotRefused = "not refused";

std::string refusalOf( const std::function< void() > & work ) {
   try {
      work();
   } catch ( const Quon::RangeException & error ) { return error.what(); }
   return kNotRefused;
}

const IpPrefix kPrefix( "10.0.0.0/8" );
const Via kVia( IpAddr( "192.0.2.1" ) );

TEST( LabelStackTest, IsReadAndWrittenTopFirst ) {
   const LabelStack stack( "100/0/1048575" );
   EXPECT_EQ( stack, ( LabelStack{ 100, 0, LabelStack::kMaxLabel } ) );
   EXPECT_EQ( stack.depth(), 3U );
   EXPECT_EQ( stack.label( 0 ), 100U );
   EXPECT_EQ( stack.label( 2 ), 1048575U );
   EXPECT_EQ( stack.toString(), "100/0/1048575" );
   EXPECT_TRUE( LabelStack().empty() );
   EXPECT_EQ( LabelStack( "" ), LabelStack() );
   EXPECT_EQ( LabelStack().toString(), "" );
}

TEST( LabelStackTest, IsOneWord ) { EXPECT_EQ( sizeof( LabelStack ), 8U ); }

TEST( LabelStackTest, IsOrderedByLabelsFromTheTop ) {
   EXPECT_LT( LabelStack(), LabelStack{ 0 } );
   EXPECT_LT( LabelStack{ 9 }, LabelStack{ 10 } );
   EXPECT_LT( LabelStack{ 255 }, LabelStack{ 256 } );
   EXPECT_LT( ( LabelStack{ 100 } ), ( LabelStack{ 100, 5 } ) );
   EXPECT_LT( ( LabelStack{ 100, 5 } ), ( LabelStack{ 101 } ) );
   EXPECT_NE( LabelStack{ 100 }.hash( 1 ), LabelStack{ 101 }.hash( 1 ) );
}

TEST( LabelStackTest, HoldsLabelsThatMayBeSentOnly ) {
   EXPECT_EQ( refusalOf( [] { LabelStack{ 100, 1U << 20 }; } ),
              "1048576 is not an MPLS label: they go from 0 to 1048575" );
   EXPECT_EQ( refusalOf( [] { LabelStack{ 3 }; } ),
              "label 3 (implicit null) is never sent; leave it out" );
   EXPECT_EQ( refusalOf( [] { LabelStack( std::vector< std::uint32_t >( 17, 100 ) ); } ),
              "a stack has 16 labels at most" );
   EXPECT_EQ( LabelStack( std::vector< std::uint32_t >( 16, 100 ) ).depth(), 16U );
}

TEST( LabelStackTest, SaysWhatIsNoStackAndWhatWouldBe ) {
   EXPECT_EQ( refusalOf( [] { LabelStack( "100 200" ); } ),
              "\"100 200\" is not a label stack; 100/200, the top first, would be one" );
   for ( const char * text :
         { "/", "100/", "/100", "100//200", "0100", "-1", "x", "100/x", "4294967296" } ) {
      EXPECT_THAT( refusalOf( [text] { LabelStack{ std::string_view( text ) }; } ),
                   HasSubstr( "is not a label stack" ) )
         << text;
   }
}

TEST( ViaTest, IsNextHopInterfaceAndLabels ) {
   const Via via( IpAddr( "fe80::1" ), IntfId( 7 ), LabelStack{ 100, 200 } );
   EXPECT_EQ( *via.nexthop(), IpAddr( "fe80::1" ) );
   EXPECT_EQ( *via.intf(), IntfId( 7 ) );
   EXPECT_EQ( via.labelStack().toString(), "100/200" );
   EXPECT_EQ( testing::PrintToString( via ),
              "Value('Routing::Fib::Via', ** {'nexthop': Value('Ipnet::IpAddr', ** {'address': "
              "'fe80::1'}), 'intf': Value('Ipnet::IntfId', ** {'value': 7}), 'labelStack': "
              "Value('Routing::Fib::LabelStack', ** {'labels': '100/200'})})" );
}

TEST( ViaTest, WhatIsAbsentIsNotZero ) {
   EXPECT_NE( Via(), Via( IpAddr() ) );
   EXPECT_NE( Via( {}, IntfId( 0 ) ), Via() );
   EXPECT_LT( Via(), Via( IpAddr() ) );
   EXPECT_NE( Via( {}, IntfId( 0 ) ).hash( 0 ), Via().hash( 0 ) );
}

TEST( MatcherTest, IsAboutTheDefaultVrfUnlessItSaysAnother ) {
   FibOverrideViaMatcher matcher = FibOverrideViaMatcher::ofRoute( kPrefix, kVia );
   EXPECT_EQ( matcher.vrf(), "default" );
   EXPECT_EQ( FibOverrideViaMatcher().vrf(), "default" );
   const FibOverrideViaMatcher inDefault = matcher;
   matcher.vrfIs( "red" );
   EXPECT_NE( matcher, inDefault );
   EXPECT_EQ( refusalOf( [&] { matcher.vrfIs( "" ); } ),
              "a VRF has a name; that of the default VRF is \"default\"" );
   EXPECT_EQ( matcher.vrf(), "red" );
}

TEST( MatcherTest, NamesAreStringAttributes ) {
   const Lumo::String tooLong = std::string( Quon::kMaxStringLength + 1, 'x' );
   FibOverrideViaMatcher matcher;
   EXPECT_THAT( refusalOf( [&] { matcher.vrfIs( tooLong ); } ), HasSubstr( "maxLength()" ) );
   EXPECT_THAT( refusalOf( [&] { matcher.nexthopGroupIs( tooLong ); } ),
                HasSubstr( "maxLength()" ) );
   EXPECT_EQ( matcher, FibOverrideViaMatcher() );
}

TEST( MatcherTest, EverythingThatItStatesMakesADifference ) {
   const auto matcher = [] { return FibOverrideViaMatcher::ofRoute( kPrefix, kVia ); };
   FibOverrideViaMatcher others[] = { matcher(), matcher(), matcher(), matcher(), matcher() };
   others[0].vrfIs( "red" );
   others[1].prefixIs( IpPrefix( "10.0.0.0/9" ) );
   others[2].prefixIs( {} );
   others[3].nexthopGroupIs( "g" );
   others[4].viaIs( Via( IpAddr( "192.0.2.2" ) ) );
   for ( const FibOverrideViaMatcher & other : others ) {
      EXPECT_NE( other, matcher() );
      EXPECT_NE( other.hash( 0 ), matcher().hash( 0 ) );
      EXPECT_NE( other < matcher(), matcher() < other );
   }
   EXPECT_EQ( matcher().hash( 0 ), matcher().hash( 0 ) );
   EXPECT_NE( matcher().hash( 0 ), matcher().hash( 1 ) );
}

TEST( MatcherTest, HasATextFormThatAcceptsWhatItMayBeOnly ) {
   const auto matcher = FibOverrideViaMatcher::ofRoute( kPrefix, kVia );
   const std::string text =
      "Value('Routing::Fib::FibOverrideViaMatcher', ** {'vrf': 'default', 'prefix': "
      "Value('Ipnet::IpPrefix', ** {'prefix': '10.0.0.0/8'}), 'nexthopGroup': '', 'via': "
      "Value('Routing::Fib::Via', ** {'nexthop': Value('Ipnet::IpAddr', ** {'address': "
      "'192.0.2.1'}), 'intf': None, 'labelStack': Value('Routing::Fib::LabelStack', ** {'labels': "
      "''})})})";
   EXPECT_EQ( testing::PrintToString( matcher ), text );
   Quon::CharRange range( text );
   EXPECT_EQ( FibOverrideViaMatcher( range ), matcher );

   const auto refusal = [&]( std::string_view right, std::string_view wrong ) -> std::string {
      std::string damaged = text;
      damaged.replace( damaged.find( right ), right.size(), wrong );
      try {
         Quon::fromText< FibOverrideViaMatcher >( damaged );
      } catch ( const Quon::ParseError & error ) { return error.what(); }
      return "not refused";
   };
   EXPECT_THAT( refusal( "'default'", "''" ), HasSubstr( "attribute \"vrf\"" ) );
   EXPECT_THAT( refusal( "10.0.0.0/8", "10.0.0.1/8" ),
                testing::AllOf( HasSubstr( "attribute \"prefix.prefix\"" ),
                                HasSubstr( "bits set behind its length" ) ) );
   EXPECT_THAT( refusal( "192.0.2.1", "192.0.2" ),
                HasSubstr( "attribute \"via.nexthop.address\"" ) );
   EXPECT_THAT( refusal( "'labels': ''", "'labels': '3'" ), HasSubstr( "implicit null" ) );
}

class FibOverrideConfigTest : public testing::Test {
 protected:
   static FibOverrideViaMatcher matcher( const Via & via = kVia ) {
      return FibOverrideViaMatcher::ofRoute( kPrefix, via );
   }
   const FibOverrideVia * find( const FibOverrideViaMatcher & key ) const {
      const auto * node = config->viaOverride()[key];
      return node ? &node->value() : nullptr;
   }
   /// Why `via` is refused; then nothing must have changed.
   std::string refusal( const FibOverrideVia & via ) {
      const auto version = config->viaOverride().version();
      const std::string why = refusalOf( [&] { config->viaOverrideIs( via ); } );
      EXPECT_EQ( config->viaOverride().version() == version, why != kNotRefused );
      return why;
   }

   const Lumo::Ptr< FibOverrideConfig > config = Lumo::makeNode< FibOverrideConfig >();
};

TEST_F( FibOverrideConfigTest, KeepsOneOverridePerMatcher ) {
   config->viaOverrideIs( FibOverrideVia( matcher(), 1 ) );
   config->viaOverrideIs( FibOverrideVia( matcher(), 2 ) );
   config->viaOverrideIs( FibOverrideVia( FibOverrideViaMatcher::ofNexthopGroup( "g", kVia ), 3 ) );
   EXPECT_EQ( config->viaOverride().size(), 2U );
   ASSERT_TRUE( find( matcher() ) );
   EXPECT_EQ( find( matcher() )->weight(), FibOverrideVia::OptionalWeight( 2 ) );
   config->viaOverrideDel( matcher() );
   config->viaOverrideDel( matcher() );
   EXPECT_FALSE( find( matcher() ) );
   config->viaOverrideDelAll();
   EXPECT_TRUE( config->viaOverride().empty() );
}

TEST_F( FibOverrideConfigTest, PublishesEachAttributeUnderItsOwnId ) {
   Quon::test::EntityWatcher watcher( *config );
   const FibOverrideVia via( matcher(), 1 );
   config->viaOverrideIs( via );
   config->viaOverrideIs( via );
   config->ucmpWeightDefaultIs( 0 );
   config->ucmpWeightDefaultIs( 0 );
   watcher.then = [&]( const Lumo::Notification & change ) {
      EXPECT_EQ( *static_cast< const FibOverrideViaMatcher * >( change.key ), matcher() );
      EXPECT_EQ( *static_cast< const FibOverrideVia * >( change.oldValue ), via );
      EXPECT_EQ( change.newValue, nullptr );
   };
   config->viaOverrideDel( matcher() );
   EXPECT_THAT( watcher.told,
                ElementsAre( FibOverrideConfig::kViaOverride, FibOverrideConfig::kUcmpWeightDefault,
                             FibOverrideConfig::kViaOverride ) );
}

TEST_F( FibOverrideConfigTest, ADefaultWeightOfZeroIsNotItsAbsence ) {
   using Weight = FibOverrideConfig::OptionalWeight;
   EXPECT_EQ( config->ucmpWeightDefault(), Weight() );
   Quon::test::EntityWatcher watcher( *config );
   watcher.then = []( const Lumo::Notification & change ) {
      EXPECT_EQ( *static_cast< const Weight * >( change.oldValue ), Weight() );
      EXPECT_EQ( *static_cast< const Weight * >( change.newValue ), Weight( 0 ) );
   };
   config->ucmpWeightDefaultIs( 0 );
   EXPECT_EQ( config->ucmpWeightDefault(), Weight( 0 ) );
   EXPECT_EQ( watcher.told.size(), 1U );
}

TEST_F( FibOverrideConfigTest, AnOverrideOverridesSomething ) {
   EXPECT_EQ( refusal( FibOverrideVia( matcher() ) ),
              "a via override has a weight, a replacement or both" );
   EXPECT_EQ( refusal( FibOverrideVia() ), "a via override has a weight, a replacement or both" );
   EXPECT_EQ( refusal( FibOverrideVia( matcher(), 0 ) ), kNotRefused );
   EXPECT_EQ( refusal( FibOverrideVia( matcher(), {}, Via( IpAddr( "192.0.2.2" ) ) ) ),
              kNotRefused );
}

TEST_F( FibOverrideConfigTest, AMatcherIsOfARouteOrOfANextHopGroup ) {
   FibOverrideViaMatcher both = matcher();
   both.nexthopGroupIs( "g" );
   EXPECT_EQ( refusal( FibOverrideVia( both, 1 ) ),
              "a via override is of a route or of a next-hop group, not of both 10.0.0.0/8 and g" );
   both.prefixIs( {} );
   EXPECT_EQ( refusal( FibOverrideVia( both, 1 ) ), kNotRefused );
   both.nexthopGroupIs( "" );
   EXPECT_EQ( refusal( FibOverrideVia( both, 1 ) ), kNotRefused ) << "any route";
}

TEST_F( FibOverrideConfigTest, AViaLeadsSomewhere ) {
   const std::string nowhere = "a via has a next hop, an interface or both; this one has none";
   EXPECT_EQ( refusal( FibOverrideVia( matcher( Via() ), 1 ) ), nowhere );
   EXPECT_EQ( refusal( FibOverrideVia( matcher( Via( {}, {}, { 100 } ) ), 1 ) ), nowhere );
   EXPECT_EQ( refusal( FibOverrideVia( matcher(), {}, Via() ) ), nowhere );
   EXPECT_EQ( refusal( FibOverrideVia( matcher( Via( {}, IntfId( 7 ) ) ), 1 ) ), kNotRefused );
}

TEST_F( FibOverrideConfigTest, ANextHopIsTheAddressOfOneNeighbour ) {
   for ( const char * address : { "0.0.0.0", "::", "224.0.0.5", "ff02::5" } ) {
      const std::string why = fmt::format( "{} is not the address of one next hop", address );
      const Via via( IpAddr( address ), IntfId( 7 ) );
      EXPECT_EQ( refusal( FibOverrideVia( matcher( via ), 1 ) ), why );
      EXPECT_EQ( refusal( FibOverrideVia( matcher(), {}, via ) ), why );
   }
   EXPECT_EQ( refusal( FibOverrideVia( matcher( Via( IpAddr( "2001:db8::1" ) ) ), 1 ) ),
              kNotRefused )
      << "IPv6 next hop of an IPv4 route";
}

TEST_F( FibOverrideConfigTest, ALinkLocalReplacementNeedsItsInterface ) {
   const IpAddr linkLocal( "fe80::1" );
   EXPECT_EQ( refusal( FibOverrideVia( matcher(), {}, Via( linkLocal ) ) ),
              "next hop fe80::1 is link-local and needs an interface" );
   EXPECT_EQ( refusal( FibOverrideVia( matcher(), {}, Via( linkLocal, IntfId( 7 ) ) ) ),
              kNotRefused );
   EXPECT_EQ( refusal( FibOverrideVia( matcher( Via( linkLocal ) ), 1 ) ), kNotRefused )
      << "that next hop on whatever interface";
}

TEST_F( FibOverrideConfigTest, CanBeMadeByName ) {
   const auto made = Quon::createEntity( "Routing::Fib::FibOverrideConfig" );
   EXPECT_TRUE( Quon::entityCast< FibOverrideConfig >( made ) );
   EXPECT_EQ( made->typeData().typeName, "Routing::Fib::FibOverrideConfig" );
   EXPECT_THAT( made->typeData().attributeNames,
                ElementsAre( "viaOverride", "ucmpWeightDefault" ) );
}

} // namespace
} // namespace Routing::Fib::test
