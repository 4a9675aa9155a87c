#include "Ipnet/Ipnet.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/Exceptions.h"
#include "Quon/ParseError.h"

namespace Ipnet::test {
namespace {

using testing::HasSubstr;

/// What is said about a text that is no `T`.
template< class T >
std::string refusalOf( std::string_view text ) {
   try {
      return "it is " + T( text ).toString();
   } catch ( const Quon::RangeException & error ) { return error.what(); }
}

std::string addrText( std::string_view address ) {
   return fmt::format( "Value('Ipnet::IpAddr', ** {{'address': '{}'}})", address );
}

TEST( IntfIdTest, IsOneNumberInEveryRespect ) {
   static_assert( sizeof( IntfId ) == 8 );
   EXPECT_EQ( IntfId( 7 ), IntfId( 7 ) );
   EXPECT_LT( IntfId( 7 ), IntfId( 8 ) );
   EXPECT_EQ( IntfId().value(), 0U );
   const std::string text = "Value('Ipnet::IntfId', ** {'value': 18446744073709551615})";
   EXPECT_EQ( Quon::text( IntfId( ~std::uint64_t{ 0 } ) ), text );
   EXPECT_EQ( Quon::fromText< IntfId >( text ), IntfId( ~std::uint64_t{ 0 } ) );
   EXPECT_EQ( testing::PrintToString( IntfId( 7 ) ), "Value('Ipnet::IntfId', ** {'value': 7})" );
}

TEST( IpAddrTest, ReadsBothFamiliesInAnySpellingAndWritesOne ) {
   const std::pair< const char *, const char * > spellings[] = {
      { "192.0.2.1", "192.0.2.1" },
      { "0.0.0.0", "0.0.0.0" },
      { "255.255.255.255", "255.255.255.255" },
      { "2001:db8::1", "2001:db8::1" },
      { "2001:0DB8:0:0:0:0:0:1", "2001:db8::1" },
      { "::", "::" },
      { "1:0:0:2:0:0:0:3", "1:0:0:2::3" },
      { "1:0:0:2:3:0:0:4", "1::2:3:0:0:4" },
      { "1:0:2:3:4:5:6:7", "1:0:2:3:4:5:6:7" },
      { "::ffff:192.0.2.1", "::ffff:192.0.2.1" },
      { "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255",
        "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff" } };
   for ( const auto & [spelling, canonical] : spellings ) {
      EXPECT_EQ( IpAddr( spelling ).toString(), canonical );
      EXPECT_EQ( IpAddr( IpAddr( spelling ).toString() ), IpAddr( spelling ) );
   }
}

TEST( IpAddrTest, SaysWhatIsNoAddressAndWhatWouldBe ) {
   EXPECT_EQ( refusalOf< IpAddr >( "10.0.0.256" ),
              "\"10.0.0.256\" is not an IP address; 192.0.2.1 and 2001:db8::1 would be such" );
   using namespace std::string_view_literals;
   for ( const std::string_view text :
         { ""sv, "10"sv, "10.0.0"sv, "010.0.0.1"sv, "10.0.0.1 "sv, "10.0.0.1\0"sv, "10.0.0.1/8"sv,
           "1::2::3"sv, "fe80::1%eth0"sv, "12345::"sv, "[::1]"sv, "router.example"sv,
           "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.2555"sv } ) {
      EXPECT_THAT( refusalOf< IpAddr >( text ), HasSubstr( "is not an IP address" ) ) << text;
   }
}

TEST( IpAddrTest, IsMadeOfNumbersToo ) {
   EXPECT_EQ( IpAddr::v4( 0xc0000201 ), IpAddr( "192.0.2.1" ) );
   EXPECT_EQ( IpAddr::v6( IpAddr( "2001:db8::1" ).bytes() ), IpAddr( "2001:db8::1" ) );
   EXPECT_EQ( IpAddr().toString(), "0.0.0.0" );
}

TEST( IpAddrTest, IsOrderedByFamilyThenNumber ) {
   const IpAddr inOrder[] = { IpAddr( "0.0.0.1" ), IpAddr( "10.0.0.1" ), IpAddr( "200.0.0.1" ),
                              IpAddr( "::" ),      IpAddr( "::1" ),      IpAddr( "fe80::1" ) };
   EXPECT_TRUE( std::is_sorted( std::begin( inOrder ), std::end( inOrder ) ) );
   EXPECT_NE( IpAddr( "0.0.0.0" ), IpAddr( "::" ) );
   EXPECT_NE( IpAddr( "1.2.3.4" ), IpAddr( "::ffff:1.2.3.4" ) );
}

TEST( IpAddrTest, HashesByFamilyNumberAndSeed ) {
   EXPECT_EQ( IpAddr( "::1" ).hash( 1 ), IpAddr( "0:0::1" ).hash( 1 ) );
   EXPECT_NE( IpAddr( "::1" ).hash( 1 ), IpAddr( "::1" ).hash( 2 ) );
   EXPECT_NE( IpAddr( "::1" ).hash( 1 ), IpAddr( "::2" ).hash( 1 ) );
   EXPECT_NE( IpAddr( "1::" ).hash( 1 ), IpAddr( "2::" ).hash( 1 ) );
   EXPECT_NE( IpAddr( "::" ).hash( 1 ), IpAddr( "0.0.0.0" ).hash( 1 ) );
}

TEST( IpAddrTest, KnowsTheSpecialOnes ) {
   EXPECT_TRUE( IpAddr( "0.0.0.0" ).isUnspecified() && IpAddr( "::" ).isUnspecified() );
   EXPECT_TRUE( IpAddr( "224.0.0.5" ).isMulticast() && IpAddr( "ff02::5" ).isMulticast() );
   EXPECT_TRUE( IpAddr( "169.254.7.7" ).isLinkLocal() && IpAddr( "febf::1" ).isLinkLocal() );
   for ( const char * text :
         { "192.0.2.1", "240.0.0.1", "169.253.0.1", "2001:db8::1", "fec0::1" } ) {
      const IpAddr addr( text );
      EXPECT_FALSE( addr.isUnspecified() || addr.isMulticast() || addr.isLinkLocal() ) << text;
   }
}

TEST( IpAddrTest, ATextFormHasTheOneSpelling ) {
   EXPECT_EQ( Quon::text( IpAddr( "2001:DB8::1" ) ), addrText( "2001:db8::1" ) );
   EXPECT_EQ( testing::PrintToString( IpAddr( "10.0.0.1" ) ), addrText( "10.0.0.1" ) );
   EXPECT_EQ( Quon::fromText< IpAddr >( addrText( "10.0.0.1" ) ), IpAddr( "10.0.0.1" ) );
   try {
      Quon::fromText< IpAddr >( addrText( "2001:DB8::1" ) );
      ADD_FAILURE() << "not refused";
   } catch ( const Quon::ParseError & error ) {
      EXPECT_EQ( error.path(), "address" );
      EXPECT_THAT( error.what(), HasSubstr( "2001:DB8::1 is written 2001:db8::1" ) );
   }
}

TEST( IpPrefixTest, ReadsAndWritesBothFamilies ) {
   for ( const char * text : { "0.0.0.0/0", "10.0.0.0/8", "192.0.2.128/25", "192.0.2.1/32", "::/0",
                               "2001:db8::/32", "2001:db8:0:0:8000::/65", "2001:db8::1/128" } ) {
      EXPECT_EQ( IpPrefix( text ).toString(), text );
   }
   EXPECT_EQ( IpPrefix().toString(), "0.0.0.0/0" );
   EXPECT_EQ( IpPrefix( IpAddr( "10.0.0.0" ), 8 ), IpPrefix( "10.0.0.0/8" ) );
   EXPECT_EQ( IpPrefix( "10.0.0.0/8" ).address(), IpAddr( "10.0.0.0" ) );
   EXPECT_EQ( IpPrefix( "10.0.0.0/8" ).length(), 8U );
}

TEST( IpPrefixTest, SaysWhatIsNoPrefixAndWhatWouldBe ) {
   EXPECT_EQ( refusalOf< IpPrefix >( "10.0.0.0" ),
              "\"10.0.0.0\" is not an IP prefix; 10.0.0.0/8 and 2001:db8::/32 would be such" );
   for ( const char * text : { "", "/", "10.0.0.0/", "10.0.0.0/08", "10.0.0.0/+8", "10.0.0.0/-1",
                               "10.0.0.0/8 ", "10.0.0.0/255.0.0.0", "10.0.0.0/99999999999" } ) {
      EXPECT_THAT( refusalOf< IpPrefix >( text ), HasSubstr( "is not an IP prefix" ) ) << text;
   }
   EXPECT_THAT( refusalOf< IpPrefix >( "10.0.0/8" ), HasSubstr( "is not an IP address" ) );
}

TEST( IpPrefixTest, IsNoLongerThanItsAddress ) {
   EXPECT_EQ( refusalOf< IpPrefix >( "10.0.0.0/33" ),
              "10.0.0.0/33 is longer than the 32 bits of an address" );
   EXPECT_EQ( refusalOf< IpPrefix >( "2001:db8::/129" ),
              "2001:db8::/129 is longer than the 128 bits of an address" );
   EXPECT_THROW( IpPrefix( IpAddr( "10.0.0.0" ), 256 ), Quon::RangeException );
}

TEST( IpPrefixTest, HasNoHostBits ) {
   EXPECT_EQ( refusalOf< IpPrefix >( "10.1.2.3/8" ),
              "10.1.2.3/8 has bits set behind its length; 10.0.0.0/8 has none" );
   EXPECT_EQ( refusalOf< IpPrefix >( "192.0.2.129/25" ),
              "192.0.2.129/25 has bits set behind its length; 192.0.2.128/25 has none" );
   EXPECT_EQ( refusalOf< IpPrefix >( "2001:db8::1/127" ),
              "2001:db8::1/127 has bits set behind its length; 2001:db8::/127 has none" );
   EXPECT_EQ( refusalOf< IpPrefix >( "0.0.0.1/0" ),
              "0.0.0.1/0 has bits set behind its length; 0.0.0.0/0 has none" );
}

TEST( IpPrefixTest, APrefixComesBeforeThoseThatItCovers ) {
   const IpPrefix inOrder[] = { IpPrefix( "10.0.0.0/8" ),   IpPrefix( "10.0.0.0/9" ),
                                IpPrefix( "10.64.0.0/10" ), IpPrefix( "10.128.0.0/9" ),
                                IpPrefix( "11.0.0.0/8" ),   IpPrefix( "::/0" ) };
   EXPECT_TRUE( std::is_sorted( std::begin( inOrder ), std::end( inOrder ) ) );
   EXPECT_NE( IpPrefix( "10.0.0.0/8" ).hash( 0 ), IpPrefix( "10.0.0.0/9" ).hash( 0 ) );
}

TEST( IpPrefixTest, ATextFormHasTheOneSpelling ) {
   const std::string text = "Value('Ipnet::IpPrefix', ** {'prefix': '2001:db8::/32'})";
   EXPECT_EQ( Quon::text( IpPrefix( "2001:DB8::/32" ) ), text );
   EXPECT_EQ( Quon::fromText< IpPrefix >( text ), IpPrefix( "2001:db8::/32" ) );
   for ( const char * prefix : { "2001:DB8::/32", "10.0.0.1/8", "10.0.0.0/33", "10.0.0.0" } ) {
      EXPECT_THROW( Quon::fromText< IpPrefix >(
                       fmt::format( "Value('Ipnet::IpPrefix', ** {{'prefix': '{}'}})", prefix ) ),
                    Quon::ParseError )
         << prefix;
   }
}

} // namespace
} // namespace Ipnet::test
