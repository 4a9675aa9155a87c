#include "agent/rpc/MplsConversion.h"

#include "Plink/Plink.h"
#include "agent/rpc/BadRequest.h"

#include <functional>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>
#include <string>
#include <velo/rpc/v1/mpls_route_programming.pb.h>
#include <velo/rpc/v1/switch_state.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;
using Mpls::RouteKey;
using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Plink::Fib::FecId;

template< typename Request >
std::string refusalOf( const Request & request ) {
   try {
      changesFrom( request );
   } catch ( const BadRequest & error ) { return error.what(); }
   return "none";
}

/// A good change of a route, spoilt.
std::string routeRefusal( const std::function< void( v1::MplsHardwareRoute & ) > & spoil ) {
   v1::PublishMplsRoutesRequest request;
   v1::MplsHardwareRoute & route = *request.add_changes()->mutable_set_route();
   route.set_label( 16 );
   route.set_state( v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
   route.mutable_acknowledgement()->set_nexthop_group_id( 1 );
   spoil( route );
   return refusalOf( request );
}

TEST( MplsConversion, AnElementThatSaysNothingIsRefused ) {
   v1::PublishMplsRoutesRequest request;
   request.add_changes()->set_remove_route( 16 );
   request.add_changes();
   EXPECT_EQ( refusalOf( request ),
              "changes[1]: no change; one of set_route and remove_route would be one" );
}

TEST( MplsConversion, LabelsHaveTwentyBits ) {
   EXPECT_EQ( routeRefusal( []( auto & route ) { route.set_label( 1'048'576 ); } ),
              "changes[0]: set_route: label is 1048576; labels go from 0 to 1048575" );
   EXPECT_EQ( routeRefusal( []( auto & route ) { route.set_label( 1'048'575 ); } ), "none" );
   v1::PublishMplsRoutesRequest request;
   request.add_changes()->set_remove_route( UINT32_MAX );
   EXPECT_EQ( refusalOf( request ),
              "changes[0]: remove_route is 4294967295; labels go from 0 to 1048575" );
}

TEST( MplsConversion, TheStateIsOneThatThereIs ) {
   const std::string right = "; PROGRAMMING_STATE_PROGRAMMED (1) or PROGRAMMING_STATE_PENDING (2) "
                             "would be one";
   EXPECT_EQ( routeRefusal( []( auto & route ) { route.clear_state(); } ),
              "changes[0]: set_route: state is 0" + right );
   EXPECT_EQ( routeRefusal( []( auto & route ) {
                 route.set_state( static_cast< v1::MplsHardwareRoute::ProgrammingState >( 77 ) );
              } ),
              "changes[0]: set_route: state is 77" + right );
}

TEST( MplsConversion, AnAcknowledgementLeadsSomewhere ) {
   EXPECT_EQ( routeRefusal( []( auto & route ) { route.mutable_acknowledgement()->clear_fec(); } ),
              "changes[0]: set_route: acknowledgement: leads nowhere; one of nexthop_group_id and "
              "fec_id says where to" );
}

TEST( MplsConversion, KindsOfAdjacenciesThatDoNotExistAreRefused ) {
   const auto ofKind = []( std::uint64_t kind ) {
      return routeRefusal( [kind]( auto & route ) {
         route.mutable_acknowledgement()->set_fec_id( kind << 56 | 5 );
      } );
   };
   for ( const std::uint64_t kind : { 27, 28, 255 } ) {
      EXPECT_EQ( ofKind( kind ), "changes[0]: set_route: acknowledgement: fec_id is of kind " +
                                    std::to_string( kind ) +
                                    ", its highest 8 bits; there are kinds 0 to 26" );
   }
   EXPECT_EQ( ofKind( 26 ), "none" );
   EXPECT_EQ( ofKind( 0 ), "none" );
   EXPECT_EQ( ofKind( 3 ), "changes[0]: set_route: acknowledgement: fec_id is of kind 3, a "
                           "next-hop group; nexthop_group_id takes the group's number" );
}

TEST( MplsConversion, TheHardwaresNumberHasEightBits ) {
   EXPECT_EQ(
      routeRefusal( []( auto & route ) { route.mutable_acknowledgement()->set_ack( 256 ); } ),
      "changes[0]: set_route: acknowledgement: ack is 256; it goes from 0 to 255" );
   EXPECT_EQ(
      routeRefusal( []( auto & route ) { route.mutable_acknowledgement()->set_ack( 255 ); } ),
      "none" );
}

TEST( MplsConversion, NamesOfGroupsHaveOneByteAtLeastAndFitAnAttribute ) {
   const auto named = []( const std::string & name ) {
      v1::PublishNexthopGroupsRequest request;
      request.add_changes()->set_id( 1 );
      request.add_changes()->set_name( name );
      return refusalOf( request );
   };
   EXPECT_EQ( named( "spine" ), "none" );
   EXPECT_EQ( named( std::string( 65'535, 'x' ) ), "none" );
   EXPECT_EQ( named( std::string( 65'536, 'x' ) ),
              "changes[1]: name has 65536 bytes; a name has at most 65535" );
   EXPECT_EQ( named( "" ), "changes[1]: name is empty; a name has 1 to 65535 bytes" );
}

TEST( MplsConversion, BatchesAreBounded ) {
   v1::PublishMplsRoutesRequest routes;
   v1::PublishNexthopGroupsRequest groups;
   for ( int n = 0; n < 10'001; ++n ) {
      routes.add_changes()->set_remove_route( 16 );
      groups.add_changes()->set_id( 1 );
   }
   EXPECT_EQ( refusalOf( routes ), "changes has 10001 elements; a message has at most 10000" );
   EXPECT_EQ( refusalOf( groups ), "changes has 10001 elements; a message has at most 10000" );
}

TEST( MplsConversion, ARouteWithoutAnAcknowledgementHasNone ) {
   v1::PublishMplsRoutesRequest request;
   v1::MplsHardwareRoute & route = *request.add_changes()->mutable_set_route();
   route.set_label( 16 );
   route.set_state( v1::MplsHardwareRoute::PROGRAMMING_STATE_PENDING );
   const Route made = std::get< Route >( changesFrom( request ).at( 0 ) );
   EXPECT_FALSE( made.ackInfo() );
   EXPECT_NE( made.programmingState(), Route::kProgrammed );
}

RC_GTEST_PROP( MplsConversion, WhatIsPublishedIsWhatIsTold, () ) {
   v1::PublishMplsRoutesRequest request;
   v1::MplsHardwareRoute & set = *request.add_changes()->mutable_set_route();
   set.set_label( *rc::gen::inRange( 0U, 1U << 20 ) );
   set.set_state( v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
   auto & acknowledged = *set.mutable_acknowledgement();
   acknowledged.set_nexthop_group_id( *rc::gen::arbitrary< std::uint32_t >() );
   acknowledged.set_route_version( *rc::gen::arbitrary< std::uint32_t >() );
   acknowledged.set_nexthop_group_version( *rc::gen::arbitrary< std::uint32_t >() );
   acknowledged.set_ack( *rc::gen::inRange( 0U, 256U ) );

   const Route route = std::get< Route >( changesFrom( request ).at( 0 ) );
   RC_ASSERT( route.programmingState() == Route::kProgrammed );
   v1::MplsProgrammedRoute told;
   toMessage( route, "spine", told );
   RC_ASSERT( told.label() == set.label() );
   RC_ASSERT( told.nexthop_group_id() == acknowledged.nexthop_group_id() );
   RC_ASSERT( ( told.fec_id() >> 56 ) == 3U );
   RC_ASSERT( told.route_version() == acknowledged.route_version() );
   RC_ASSERT( told.nexthop_group_version() == acknowledged.nexthop_group_version() );
   RC_ASSERT( told.ack() == acknowledged.ack() );
   RC_ASSERT( told.nexthop_group_name() == "spine" );
}

RC_GTEST_PROP( MplsConversion, EveryOtherAdjacencyIsTakenAsItIs, () ) {
   const auto kind = *rc::gen::suchThat( rc::gen::inRange< std::uint64_t >( 0, 27 ),
                                         []( std::uint64_t each ) { return each != 3; } );
   const std::uint64_t fecId =
      kind << 56 | *rc::gen::inRange< std::uint64_t >( 0, std::uint64_t{ 1 } << 56 );
   v1::PublishMplsRoutesRequest request;
   v1::MplsHardwareRoute & set = *request.add_changes()->mutable_set_route();
   set.set_state( v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
   set.mutable_acknowledgement()->set_fec_id( fecId );
   const Route route = std::get< Route >( changesFrom( request ).at( 0 ) );
   RC_ASSERT( route.ackInfo()->fecId() == FecId( fecId ) );
}

} // namespace
} // namespace VeloAgent
