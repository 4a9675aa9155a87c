// Overrides of vias as clients set, delete, list and resync them.

#include "agent/test/ResyncStory.h"
#include "agent/test/RpcFixture.h"

#include <functional>
#include <gmock/gmock.h>
#include <set>
#include <velo/rpc/v1/fib_overrides.grpc.pb.h>

namespace VeloAgent::FibOverridesTest {
namespace {

namespace v1 = velo::rpc::v1;
using grpc::StatusCode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Stub = v1::FibOverrides::Stub;
using Resync = ResyncStory< Stub, v1::FibOverridesResyncRequest, v1::FibOverridesResyncResponse >;

v1::FibOverrideMatcher matcher( const std::string & prefix ) {
   v1::FibOverrideMatcher matcher;
   matcher.set_prefix( prefix );
   matcher.mutable_via()->set_next_hop( "192.0.2.1" );
   return matcher;
}
v1::FibOverride weighted( const std::string & prefix, std::uint32_t weight ) {
   v1::FibOverride made;
   *made.mutable_matcher() = matcher( prefix );
   made.set_weight( weight );
   return made;
}
std::string numbered( int n ) {
   return "10." + std::to_string( n / 256 ) + '.' + std::to_string( n % 256 ) + ".0/24";
}

template< typename Request >
Request with( const std::vector< v1::FibOverride > & overrides ) {
   Request request;
   for ( const auto & each : overrides ) { *request.add_overrides() = each; }
   return request;
}
const auto message = with< v1::FibOverridesResyncRequest >;

class FibOverrides : public RpcFixture {
 protected:
   grpc::Status set( const std::vector< v1::FibOverride > & overrides ) {
      v1::FibOverridesSetResponse response;
      return call( *stub, &Stub::Set, with< v1::FibOverridesSetRequest >( overrides ), response );
   }
   grpc::Status del( const std::vector< v1::FibOverrideMatcher > & matchers,
                     v1::FibOverridesDeleteResponse & response ) {
      v1::FibOverridesDeleteRequest request;
      for ( const auto & each : matchers ) { *request.add_matchers() = each; }
      return call( *stub, &Stub::Delete, request, response );
   }

   v1::FibOverridesListResponse page( std::uint32_t size, const std::string & token ) {
      v1::FibOverridesListRequest request;
      request.set_page_size( size );
      request.set_page_token( token );
      v1::FibOverridesListResponse response;
      EXPECT_TRUE( call( *stub, &Stub::List, request, response ).ok() );
      return response;
   }
   std::vector< v1::FibOverride > list( std::uint32_t size = 0,
                                        const std::function< void() > & between = {} ) {
      std::vector< v1::FibOverride > found;
      std::string token;
      do {
         const auto response = page( size, token );
         found.insert( found.end(), response.overrides().begin(), response.overrides().end() );
         token = response.next_page_token();
         if ( between && !token.empty() ) { between(); }
      } while ( !token.empty() );
      return found;
   }
   /// "prefix weight" of each.
   std::vector< std::string > weights() {
      std::vector< std::string > all;
      for ( const auto & each : list() ) {
         all.push_back( each.matcher().prefix() + ' ' + std::to_string( each.weight() ) );
      }
      return all;
   }

   /// The only one that is there.
   v1::FibOverride only() {
      const auto all = list();
      EXPECT_EQ( all.size(), 1U );
      return all.empty() ? v1::FibOverride() : all.front();
   }

   /// INVALID_ARGUMENT with this text behind the place, and nothing is set.
   void expectRefused( const std::function< void( v1::FibOverride & ) > & spoil,
                       const std::string & text ) {
      v1::FibOverride spoilt = weighted( "10.0.0.0/8", 1 );
      spoil( spoilt );
      const grpc::Status status = set( { weighted( "20.0.0.0/8", 1 ), spoilt } );
      EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
      EXPECT_EQ( status.error_message(), "overrides[1]: " + text );
      EXPECT_THAT( list(), IsEmpty() );
   }

   std::unique_ptr< Stub > stub = v1::FibOverrides::NewStub( connection() );
};

TEST_F( FibOverrides, AreAddedAndReplacedByMatcher ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ), weighted( "20.0.0.0/8", 2 ) } ).ok() );
   ASSERT_TRUE( set( { weighted( "20.0.0.0/8", 3 ) } ).ok() );
   EXPECT_THAT( weights(), UnorderedElementsAre( "10.0.0.0/8 1", "20.0.0.0/8 3" ) );
}

TEST_F( FibOverrides, AreToldAsTheyWereSet ) {
   v1::FibOverride full;
   full.mutable_matcher()->set_vrf( "blue" );
   full.mutable_matcher()->set_nexthop_group( "spines" );
   full.mutable_matcher()->mutable_via()->set_interface_id( 0 );
   full.set_weight( 0 );
   auto & via = *full.mutable_replacement();
   via.set_next_hop( "2001:db8::1" );
   via.set_interface_id( 7 );
   for ( const std::uint32_t label : { 100U, 0U, 1'048'575U } ) { via.add_labels( label ); }
   ASSERT_TRUE( set( { full } ).ok() );
   EXPECT_EQ( only().DebugString(), full.DebugString() );
}

TEST_F( FibOverrides, AreOfTheDefaultVrfIfNoneIsStatedAndAddressesHaveOneSpelling ) {
   v1::FibOverride made = weighted( "2001:DB8:0:0::/32", 1 );
   made.mutable_matcher()->mutable_via()->set_next_hop( "2001:DB8:0::0001" );
   ASSERT_TRUE( set( { made } ).ok() );
   EXPECT_EQ( only().matcher().vrf(), "default" );
   EXPECT_EQ( only().matcher().prefix(), "2001:db8::/32" );
   EXPECT_EQ( only().matcher().via().next_hop(), "2001:db8::1" );
   EXPECT_FALSE( only().has_replacement() );
}

TEST_F( FibOverrides, AreDeletedAndMatchersWithoutOneArePassedOver ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ), weighted( "20.0.0.0/8", 2 ) } ).ok() );
   v1::FibOverridesDeleteResponse response;
   ASSERT_TRUE( del( { matcher( "10.0.0.0/8" ), matcher( "10.0.0.0/9" ), matcher( "10.0.0.0/8" ),
                       v1::FibOverrideMatcher() },
                     response )
                   .ok() );
   EXPECT_EQ( response.deleted(), 1U );
   EXPECT_THAT( weights(), ElementsAre( "20.0.0.0/8 2" ) );
}

TEST_F( FibOverrides, WhatCannotBeReadIsNamedAndNothingIsSet ) {
   expectRefused( []( auto & o ) { o.mutable_matcher()->set_prefix( "10.0.0.1/8" ); },
                  "matcher: prefix: 10.0.0.1/8 has bits set behind its length; 10.0.0.0/8 has "
                  "none" );
   expectRefused( []( auto & o ) { o.mutable_matcher()->set_prefix( "ten" ); },
                  "matcher: prefix: \"ten\" is not an IP prefix; 10.0.0.0/8 and 2001:db8::/32 "
                  "would be such" );
   expectRefused( []( auto & o ) { o.mutable_matcher()->mutable_via()->set_next_hop( "1.2.3" ); },
                  "matcher: via: next_hop: \"1.2.3\" is not an IP address; 192.0.2.1 and "
                  "2001:db8::1 would be such" );
   expectRefused( []( auto & o ) { o.mutable_matcher()->mutable_via()->add_labels( 1'048'576 ); },
                  "matcher: via: labels: 1048576 is not an MPLS label: they go from 0 to 1048575" );
   expectRefused( []( auto & o ) { o.mutable_replacement()->add_labels( 3 ); },
                  "replacement: labels: label 3 (implicit null) is never sent; leave it out" );
   expectRefused(
      []( auto & o ) {
         for ( int n = 0; n < 17; ++n ) { o.mutable_replacement()->add_labels( 100 ); }
      },
      "replacement: labels: a stack has 16 labels at most" );
   expectRefused( []( auto & o ) { o.mutable_matcher()->set_vrf( std::string( 65'536, 'x' ) ); },
                  "matcher: vrf has 65536 bytes; a name has at most 65535" );
   expectRefused(
      []( auto & o ) {
         o.mutable_matcher()->clear_prefix();
         o.mutable_matcher()->set_nexthop_group( std::string( 65'536, 'x' ) );
      },
      "matcher: nexthop_group has 65536 bytes; a name has at most 65535" );
}

TEST_F( FibOverrides, OfALongTextThatCannotBeReadTheBeginningAndTheEndAreTold ) {
   v1::FibOverride spoilt = weighted( "10.0.0.0/8", 1 );
   std::string longText;
   while ( longText.size() < 100'000 ) { longText += "\u00e4"; }
   spoilt.mutable_matcher()->mutable_via()->set_next_hop( longText );
   const grpc::Status status = set( { spoilt } );
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_THAT( status.error_message(),
                testing::AllOf( testing::StartsWith( "overrides[0]: matcher: via: next_hop: " ),
                                testing::HasSubstr( "\u00e4 ... \u00e4" ),
                                testing::EndsWith( "192.0.2.1 and 2001:db8::1 would be such" ),
                                testing::SizeIs( testing::Le( 1'010U ) ) ) );
   EXPECT_THAT( list(), IsEmpty() );
}

TEST_F( FibOverrides, WhatMakesNoSenseIsNamedAndNothingIsSet ) {
   expectRefused( []( auto & o ) { o.clear_weight(); },
                  "a via override has a weight, a replacement or both" );
   expectRefused( []( auto & o ) { o.mutable_matcher()->set_nexthop_group( "spines" ); },
                  "a via override is of a route or of a next-hop group, not of both 10.0.0.0/8 "
                  "and spines" );
   const std::string noVia = "a via has a next hop, an interface or both; this one has none";
   expectRefused( []( auto & o ) { o.mutable_matcher()->clear_via(); }, noVia );
   expectRefused( []( auto & o ) { o.clear_matcher(); }, noVia );
   expectRefused( []( auto & o ) { o.mutable_replacement(); }, noVia );
   for ( const char * nobody : { "0.0.0.0", "224.0.0.1", "::", "ff02::1" } ) {
      expectRefused(
         [&]( auto & o ) { o.mutable_matcher()->mutable_via()->set_next_hop( nobody ); },
         std::string( nobody ) + " is not the address of one next hop" );
   }
   expectRefused( []( auto & o ) { o.mutable_replacement()->set_next_hop( "fe80::1" ); },
                  "next hop fe80::1 is link-local and needs an interface" );
}

TEST_F( FibOverrides, ADeletionIsCheckedAsAWholeToo ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ) } ).ok() );
   v1::FibOverridesDeleteResponse response;
   const grpc::Status status = del( { matcher( "10.0.0.0/8" ), matcher( "x" ) }, response );
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "matchers[1]: prefix: \"x\" is not an IP prefix; 10.0.0.0/8 "
                                      "and 2001:db8::/32 would be such" );
   EXPECT_EQ( list().size(), 1U );
}

TEST_F( FibOverrides, OfARequestThatIsTooLargeNothingIsSet ) {
   const std::vector< v1::FibOverride > many( 10'001, weighted( "10.0.0.0/8", 1 ) );
   EXPECT_EQ( set( many ).error_message(),
              "overrides has 10001 elements; a message has at most 10000" );
   EXPECT_THAT( list(), IsEmpty() );
   v1::FibOverridesDeleteResponse response;
   const std::vector< v1::FibOverrideMatcher > matchers( 10'001, matcher( "10.0.0.0/8" ) );
   EXPECT_EQ( del( matchers, response ).error_message(),
              "matchers has 10001 elements; a message has at most 10000" );
}

TEST_F( FibOverrides, AreListedOncePageByPageWhileOthersComeAndGo ) {
   std::vector< v1::FibOverride > lasting;
   for ( int n = 0; n < 100; ++n ) { lasting.push_back( weighted( numbered( n ), 1 ) ); }
   ASSERT_TRUE( set( lasting ).ok() );
   int changes = 0;
   const auto found = list( 7, [&] {
      v1::FibOverridesDeleteResponse response;
      ASSERT_TRUE( del( { matcher( numbered( 1000 + changes - 2 ) ) }, response ).ok() );
      ASSERT_TRUE( set( { weighted( numbered( 1000 + changes ), 2 ),
                          weighted( numbered( 2000 + changes ), 2 ) } )
                      .ok() );
      ++changes;
   } );
   EXPECT_GE( changes, 14 );
   std::multiset< std::string > prefixes;
   for ( const auto & each : found ) { prefixes.insert( each.matcher().prefix() ); }
   for ( const auto & each : lasting ) {
      EXPECT_EQ( prefixes.count( each.matcher().prefix() ), 1U ) << each.matcher().prefix();
   }
}

TEST_F( FibOverrides, APageOfLargeOnesHasFewer ) {
   constexpr int kOverrides = 25;
   for ( int n = 0; n < kOverrides; ++n ) {
      v1::FibOverride large = weighted( numbered( n ), 1 );
      large.mutable_matcher()->set_vrf( std::string( 60'000, 'x' ) );
      ASSERT_TRUE( set( { large } ).ok() );
   }
   const auto first = page( 0, "" );
   EXPECT_GT( first.overrides_size(), 10 );
   EXPECT_LT( first.overrides_size(), 20 );
   EXPECT_EQ( list().size(), std::size_t{ kOverrides } );
}

TEST_F( FibOverrides, ATokenOfAnotherListIsRefused ) {
   v1::FibOverridesListRequest request;
   request.set_page_token( "10.0.0.0/8" );
   v1::FibOverridesListResponse response;
   const grpc::Status status = call( *stub, &Stub::List, request, response );
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "page_token is none that this run of the agent has given "
                                      "out; an empty one asks for the first page" );
}

TEST_F( FibOverrides, AResyncRemovesAtItsEndWhatWasNotSent ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ), weighted( "20.0.0.0/8", 2 ),
                       weighted( "30.0.0.0/8", 3 ) } )
                   .ok() );
   Resync resync( *stub, &Stub::Resync );
   resync.send( message( { weighted( "20.0.0.0/8", 22 ) } ) );
   resync.send( message( { weighted( "40.0.0.0/8", 4 ) } ) );
   ASSERT_TRUE( resync.end().ok() );
   EXPECT_THAT( weights(), UnorderedElementsAre( "20.0.0.0/8 22", "40.0.0.0/8 4" ) );
   EXPECT_EQ( resync.response.set(), 2U );
   EXPECT_EQ( resync.response.deleted(), 2U );
}

TEST_F( FibOverrides, ABadElementAbandonsTheResyncAndIsNamedWithItsMessage ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ) } ).ok() );
   Resync resync( *stub, &Stub::Resync );
   resync.send( message( { weighted( "20.0.0.0/8", 2 ) } ) );
   resync.send( message( { weighted( "30.0.0.0/8", 3 ), weighted( "x", 1 ) } ) );
   const grpc::Status status = resync.end();
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "message 2: overrides[1]: matcher: prefix: \"x\" is not an "
                                      "IP prefix; 10.0.0.0/8 and 2001:db8::/32 would be such" );
   EXPECT_THAT( weights(), UnorderedElementsAre( "10.0.0.0/8 1", "20.0.0.0/8 2" ) )
      << "what was set until then stays, and nothing is removed";
}

TEST_F( FibOverrides, AnElementThatMakesNoSenseAbandonsTheResyncToo ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ) } ).ok() );
   v1::FibOverride nothing = weighted( "20.0.0.0/8", 1 );
   nothing.clear_weight();
   Resync resync( *stub, &Stub::Resync );
   resync.send( message( { nothing } ) );
   EXPECT_EQ( resync.end().error_message(),
              "message 1: overrides[0]: a via override has a weight, a replacement or both" );
   EXPECT_THAT( weights(), ElementsAre( "10.0.0.0/8 1" ) );
   Resync next( *stub, &Stub::Resync );
   EXPECT_TRUE( next.end().ok() ) << "the bracket is free again";
}

TEST_F( FibOverrides, AResyncThatBreaksRemovesNothing ) {
   ASSERT_TRUE( set( { weighted( "10.0.0.0/8", 1 ) } ).ok() );
   {
      Resync broken( *stub, &Stub::Resync );
      broken.send( message( { weighted( "20.0.0.0/8", 2 ) } ) );
      while ( list().size() < 2 ) {}
   }
   // The next one is refused until the break has been seen; then it is free to go.
   const auto end = deadline();
   grpc::Status status;
   do {
      EXPECT_EQ( list().size(), 2U );
      Resync next( *stub, &Stub::Resync );
      next.send( message( { weighted( "10.0.0.0/8", 1 ), weighted( "20.0.0.0/8", 2 ) } ) );
      status = next.end();
   } while ( status.error_code() == StatusCode::ABORTED && std::chrono::system_clock::now() < end );
   EXPECT_TRUE( status.ok() ) << status.error_message();
   EXPECT_EQ( list().size(), 2U );
}

TEST_F( FibOverrides, OneResyncAtATime ) {
   Resync first( *stub, &Stub::Resync );
   first.send( message( { weighted( "10.0.0.0/8", 1 ) } ) );
   while ( list().empty() ) {}
   Resync second( *stub, &Stub::Resync );
   EXPECT_EQ( second.end().error_code(), StatusCode::ABORTED );
   EXPECT_TRUE( first.end().ok() );
   EXPECT_EQ( list().size(), 1U );
}

TEST_F( FibOverrides, TheDefaultUcmpWeightIsAbsentUntilItIsSetAndTakesNoPartInAResync ) {
   const auto weight = [this] {
      v1::GetDefaultUcmpWeightResponse response;
      EXPECT_TRUE(
         call( *stub, &Stub::GetDefaultUcmpWeight, v1::GetDefaultUcmpWeightRequest(), response )
            .ok() );
      return response.has_weight() ? std::optional( response.weight() ) : std::nullopt;
   };
   v1::SetDefaultUcmpWeightRequest request;
   v1::SetDefaultUcmpWeightResponse response;

   EXPECT_EQ( weight(), std::nullopt );
   const grpc::Status status = call( *stub, &Stub::SetDefaultUcmpWeight, request, response );
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "weight is not set; any number would do, also 0" );
   EXPECT_EQ( weight(), std::nullopt );

   request.set_weight( 0 );
   ASSERT_TRUE( call( *stub, &Stub::SetDefaultUcmpWeight, request, response ).ok() );
   EXPECT_EQ( weight(), 0U );
   request.set_weight( 5 );
   ASSERT_TRUE( call( *stub, &Stub::SetDefaultUcmpWeight, request, response ).ok() );
   Resync resync( *stub, &Stub::Resync );
   ASSERT_TRUE( resync.end().ok() );
   EXPECT_EQ( weight(), 5U );
}

} // namespace
} // namespace VeloAgent::FibOverridesTest
