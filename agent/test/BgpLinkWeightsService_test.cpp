// BGP link weights as clients set, delete, list and resync them.

#include "agent/test/ResyncStory.h"
#include "agent/test/RpcFixture.h"

#include <gmock/gmock.h>
#include <grpcpp/generic/generic_stub.h>
#include <map>
#include <velo/rpc/v1/bgp_link_weights.grpc.pb.h>

namespace VeloAgent::BgpLinkWeightsTest {
namespace {

namespace v1 = velo::rpc::v1;
using grpc::StatusCode;
using testing::IsEmpty;
using Stub = v1::BgpLinkWeights::Stub;
using Resync =
   ResyncStory< Stub, v1::BgpLinkWeightsResyncRequest, v1::BgpLinkWeightsResyncResponse >;

/// Weight by interface.
using Weights = std::map< std::uint64_t, std::uint32_t >;

template< typename Request >
Request with( const Weights & weights ) {
   Request request;
   for ( const auto & [intf, weight] : weights ) {
      v1::BgpLinkWeight & to = *request.add_weights();
      to.set_interface_id( intf );
      to.set_weight( weight );
   }
   return request;
}
const auto message = with< v1::BgpLinkWeightsResyncRequest >;

Weights numbered( std::uint64_t from, std::uint64_t to, std::uint32_t weight = 10 ) {
   Weights weights;
   for ( std::uint64_t intf = from; intf < to; ++intf ) { weights[intf] = weight; }
   return weights;
}

class BgpLinkWeights : public RpcFixture {
 protected:
   using RpcFixture::RpcFixture;

   grpc::Status set( const Weights & weights ) {
      v1::BgpLinkWeightsSetResponse response;
      return call( *stub, &Stub::Set, with< v1::BgpLinkWeightsSetRequest >( weights ), response );
   }
   /// How many had one.
   std::uint64_t del( const std::vector< std::uint64_t > & interfaces ) {
      v1::BgpLinkWeightsDeleteRequest request;
      request.mutable_interface_ids()->Add( interfaces.begin(), interfaces.end() );
      v1::BgpLinkWeightsDeleteResponse response;
      EXPECT_TRUE( call( *stub, &Stub::Delete, request, response ).ok() );
      return response.deleted();
   }

   v1::BgpLinkWeightsListResponse page( std::uint32_t size, const std::string & token ) {
      v1::BgpLinkWeightsListRequest request;
      request.set_page_size( size );
      request.set_page_token( token );
      v1::BgpLinkWeightsListResponse response;
      EXPECT_TRUE( call( *stub, &Stub::List, request, response ).ok() );
      return response;
   }
   /// All that is listed, in pages of `size`. `between` is called after each but the last.
   Weights list( std::uint32_t size = 0, const std::function< void() > & between = {} ) {
      Weights found;
      std::string token;
      do {
         const auto response = page( size, token );
         for ( const auto & each : response.weights() ) {
            EXPECT_TRUE( found.emplace( each.interface_id(), each.weight() ).second )
               << each.interface_id() << " is listed twice";
         }
         token = response.next_page_token();
         if ( between && !token.empty() ) { between(); }
      } while ( !token.empty() );
      return found;
   }

   /// Waits until no resync is in progress. Changes nothing: what it sends is refused.
   void untilNoResync() {
      const auto end = deadline();
      while ( std::chrono::system_clock::now() < end ) {
         Resync probe( *stub, &Stub::Resync );
         probe.send( message( numbered( 0, 10'001 ) ) );
         if ( probe.end().error_code() == StatusCode::INVALID_ARGUMENT ) { return; }
      }
      FAIL() << "a resync goes on";
   }

   std::unique_ptr< Stub > stub = v1::BgpLinkWeights::NewStub( connection() );
};

TEST_F( BgpLinkWeights, AreAddedAndReplaced ) {
   ASSERT_TRUE( set( { { 1, 10 }, { 2, 20 } } ).ok() );
   ASSERT_TRUE( set( { { 2, 21 }, { UINT64_MAX, UINT32_MAX }, { 0, 0 } } ).ok() );
   EXPECT_EQ( list(), ( Weights{ { 0, 0 }, { 1, 10 }, { 2, 21 }, { UINT64_MAX, UINT32_MAX } } ) );
}

TEST_F( BgpLinkWeights, AreDeletedAndThoseWithoutOneArePassedOver ) {
   ASSERT_TRUE( set( { { 1, 10 }, { 2, 20 }, { 3, 30 } } ).ok() );
   EXPECT_EQ( del( { 1, 7, 3, 1 } ), 2U );
   EXPECT_EQ( list(), ( Weights{ { 2, 20 } } ) );
   EXPECT_EQ( del( {} ), 0U );
}

TEST_F( BgpLinkWeights, OfARequestThatIsTooLargeNothingIsSet ) {
   const grpc::Status status = set( numbered( 0, 10'001 ) );
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "weights has 10001 elements; a message has at most 10000" );
   EXPECT_THAT( list(), IsEmpty() );
   EXPECT_TRUE( set( numbered( 0, 10'000 ) ).ok() );

   v1::BgpLinkWeightsDeleteRequest request;
   for ( std::uint64_t intf = 0; intf < 10'001; ++intf ) { request.add_interface_ids( intf ); }
   v1::BgpLinkWeightsDeleteResponse response;
   EXPECT_EQ( call( *stub, &Stub::Delete, request, response ).error_message(),
              "interface_ids has 10001 elements; a message has at most 10000" );
   EXPECT_EQ( list().size(), 10'000U );
}

TEST_F( BgpLinkWeights, AreListedPageByPage ) {
   const Weights weights = numbered( 0, 2500 );
   ASSERT_TRUE( set( weights ).ok() );
   EXPECT_EQ( page( 0, "" ).weights_size(), 1000 );
   EXPECT_EQ( page( 7, "" ).weights_size(), 7 );
   EXPECT_EQ( list(), weights );
   EXPECT_EQ( list( 7 ), weights );
   EXPECT_EQ( list( 2500 ), weights );
   EXPECT_THAT( page( 2500, "" ).next_page_token(), IsEmpty() );
}

TEST_F( BgpLinkWeights, APageHasNeverMoreThanTenThousand ) {
   ASSERT_TRUE( set( numbered( 0, 10'000 ) ).ok() );
   ASSERT_TRUE( set( numbered( 10'000, 10'001 ) ).ok() );
   const auto first = page( UINT32_MAX, "" );
   EXPECT_EQ( first.weights_size(), 10'000 );
   EXPECT_EQ( page( UINT32_MAX, first.next_page_token() ).weights_size(), 1 );
}

TEST_F( BgpLinkWeights, WhatIsThereAllTheWhileIsListedOnceHoweverTheRestChanges ) {
   ASSERT_TRUE( set( numbered( 0, 300, 1 ) ).ok() );
   std::uint64_t changes = 0;
   const Weights found = list( 10, [&] {
      // Away with some, here with many others, and some that were deleted come back.
      del( { 200 + changes % 100, 201 + changes % 100 } );
      ASSERT_TRUE( set( numbered( 1000 + 8 * changes, 1008 + 8 * changes, 2 ) ).ok() );
      if ( changes > 5 ) { ASSERT_TRUE( set( { { 200 + changes - 5, 3 } } ).ok() ); }
      ++changes;
   } );
   EXPECT_GE( changes, 30U );
   for ( std::uint64_t intf = 0; intf < 200; ++intf ) {
      EXPECT_EQ( found.count( intf ), 1U ) << intf;
   }
}

TEST_F( BgpLinkWeights, APageMayBeginAtWhatIsGone ) {
   ASSERT_TRUE( set( numbered( 0, 100 ) ).ok() );
   const auto first = page( 10, "" );
   std::vector< std::uint64_t > rest;
   for ( std::uint64_t intf = 0; intf < 100; ++intf ) { rest.push_back( intf ); }
   EXPECT_EQ( del( rest ), 100U );
   const auto second = page( 10, first.next_page_token() );
   EXPECT_EQ( second.weights_size(), 0 );
   EXPECT_THAT( second.next_page_token(), IsEmpty() );
}

TEST_F( BgpLinkWeights, ATokenThatTheAgentHasNotGivenOutIsRefused ) {
   ASSERT_TRUE( set( numbered( 0, 100 ) ).ok() );
   const std::string good = page( 10, "" ).next_page_token();
   const std::string ofAnotherProcess = ( good[0] == '0' ? '1' : '0' ) + good.substr( 1 );
   for ( const std::string & wrong : { std::string( "x" ), good + "x", good.substr( 0, 10 ),
                                       good.substr( 0, good.size() - 1 ), ofAnotherProcess } ) {
      v1::BgpLinkWeightsListRequest request;
      request.set_page_token( wrong );
      v1::BgpLinkWeightsListResponse response;
      const grpc::Status status = call( *stub, &Stub::List, request, response );
      EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT ) << wrong;
      EXPECT_EQ( status.error_message(),
                 "page_token is none that this run of the agent has given out; an empty one asks "
                 "for the first page" );
   }
}

TEST_F( BgpLinkWeights, AResyncRemovesAtItsEndWhatWasNotSent ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   Resync resync( *stub, &Stub::Resync );
   resync.send( message( { { 1, 11 }, { 2, 12 } } ) );
   resync.send( message( { { 7, 17 } } ) );
   const grpc::Status status = resync.end();
   ASSERT_TRUE( status.ok() ) << status.error_message();
   EXPECT_EQ( list(), ( Weights{ { 1, 11 }, { 2, 12 }, { 7, 17 } } ) );
   EXPECT_EQ( resync.response.set(), 3U );
   EXPECT_EQ( resync.response.deleted(), 3U );
}

TEST_F( BgpLinkWeights, AResyncOfNothingRemovesAll ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   Resync resync( *stub, &Stub::Resync );
   ASSERT_TRUE( resync.end().ok() );
   EXPECT_THAT( list(), IsEmpty() );
   EXPECT_EQ( resync.response.deleted(), 5U );
}

TEST_F( BgpLinkWeights, AResyncOfManyMessagesIsTakenWhole ) {
   constexpr std::uint64_t kMessages = 200;
   ASSERT_TRUE( set( { { 999'999, 1 } } ).ok() );
   Resync resync( *stub, &Stub::Resync );
   for ( std::uint64_t n = 0; n < kMessages; ++n ) {
      ASSERT_TRUE( resync.send( message( numbered( 50 * n, 50 * n + 50 ) ) ) );
   }
   ASSERT_TRUE( resync.end().ok() );
   EXPECT_EQ( resync.response.set(), 50 * kMessages );
   EXPECT_EQ( resync.response.deleted(), 1U );
   EXPECT_EQ( list(), numbered( 0, 50 * kMessages ) );
}

TEST_F( BgpLinkWeights, AResyncThatBreaksRemovesNothing ) {
   ASSERT_TRUE( set( numbered( 0, 5, 1 ) ).ok() );
   for ( std::uint64_t round = 0; round < 100; ++round ) {
      Resync resync( *stub, &Stub::Resync );
      for ( std::uint64_t n = 0; n < round % 4; ++n ) {
         resync.send( message( { { 100 + n, 1 } } ) );
      }
      resync.cancel();
      EXPECT_FALSE( resync.finish().ok() );
   }
   untilNoResync();
   const Weights left = list();
   for ( const auto & [intf, weight] : numbered( 0, 5, 1 ) ) {
      EXPECT_EQ( left.count( intf ), 1U ) << intf;
   }
}

TEST_F( BgpLinkWeights, AResyncWhoseConnectionIsLostRemovesNothing ) {
   ASSERT_TRUE( set( numbered( 0, 5, 1 ) ).ok() );
   for ( int round = 0; round < 20; ++round ) {
      // The channel goes with the stub while the call is open: its connection is closed.
      const auto lost = v1::BgpLinkWeights::NewStub( connection() );
      Resync resync( *lost, &Stub::Resync );
      resync.send( message( { { 100, 1 } } ) );
   }
   untilNoResync();
   const Weights left = list();
   for ( std::uint64_t intf = 0; intf < 5; ++intf ) { EXPECT_EQ( left.count( intf ), 1U ); }
}

TEST_F( BgpLinkWeights, AResyncPastItsDeadlineRemovesNothing ) {
   ASSERT_TRUE( set( numbered( 0, 5, 1 ) ).ok() );
   grpc::ClientContext context;
   context.set_deadline( std::chrono::system_clock::now() + std::chrono::milliseconds( 50 ) );
   v1::BgpLinkWeightsResyncResponse response;
   const auto writer = stub->Resync( &context, &response );
   while ( writer->Write( message( { { 100, 1 } } ) ) ) {}
   EXPECT_EQ( writer->Finish().error_code(), StatusCode::DEADLINE_EXCEEDED );
   untilNoResync();
   EXPECT_EQ( list().count( 3 ), 1U );
}

TEST_F( BgpLinkWeights, AMessageThatCannotBeParsedAbandonsTheResync ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   grpc::GenericStub generic( connection() );
   grpc::CompletionQueue queue;
   const auto done = [&queue] {
      void * tag = nullptr;
      bool ok = false;
      EXPECT_EQ( queue.AsyncNext( &tag, &ok, deadline() ), grpc::CompletionQueue::GOT_EVENT );
      return ok;
   };
   const auto bytes = []( const std::string & text ) {
      const grpc::Slice slice( text );
      return grpc::ByteBuffer( &slice, 1 );
   };
   grpc::ClientContext context;
   const auto stream =
      generic.PrepareCall( &context, "/velo.rpc.v1.BgpLinkWeights/Resync", &queue );
   stream->StartCall( nullptr );
   ASSERT_TRUE( done() );
   stream->Write( bytes( message( { { 1, 11 } } ).SerializeAsString() ), nullptr );
   ASSERT_TRUE( done() );
   stream->Write( bytes( "\xff\xff\xff" ), nullptr );
   done();
   stream->WritesDone( nullptr );
   done();
   grpc::Status status;
   stream->Finish( &status, nullptr );
   done();
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(), "message 2: cannot be parsed" );
   EXPECT_EQ( list().size(), 5U );
}

TEST_F( BgpLinkWeights, AMessageThatIsTooLongAbandonsTheResync ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   Resync resync( *stub, &Stub::Resync );
   resync.send( message( { { 1, 11 } } ) );
   resync.send( message( numbered( 100'000, 110'001 ) ) );
   const grpc::Status status = resync.end();
   EXPECT_EQ( status.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( status.error_message(),
              "message 2: weights has 10001 elements; a message has at most 10000" );
   EXPECT_EQ( list().size(), 5U );
   EXPECT_EQ( list().at( 1 ), 11U ) << "what was set until then stays";
}

TEST_F( BgpLinkWeights, AMessageBeyondWhatTheServerTakesAbandonsTheResync ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   v1::BgpLinkWeightsResyncRequest huge;
   while ( huge.ByteSizeLong() < 5'000'000 ) {
      huge.MergeFrom( message( numbered( UINT64_MAX - 10'000, UINT64_MAX ) ) );
   }
   Resync resync( *stub, &Stub::Resync );
   resync.send( huge );
   EXPECT_EQ( resync.end().error_code(), StatusCode::RESOURCE_EXHAUSTED );
   EXPECT_EQ( list().size(), 5U );
}

TEST_F( BgpLinkWeights, OneResyncAtATime ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   Resync first( *stub, &Stub::Resync );
   first.send( message( { { 1, 11 } } ) );
   while ( list().at( 1 ) != 11 ) {}
   {
      Resync second( *stub, &Stub::Resync );
      const grpc::Status status = second.end();
      EXPECT_EQ( status.error_code(), StatusCode::ABORTED );
      EXPECT_EQ( status.error_message(),
                 "another client's resync is in progress; try again when it is over" );
   }
   EXPECT_EQ( list().size(), 5U ) << "the second has removed nothing";
   ASSERT_TRUE( first.end().ok() );
   EXPECT_EQ( list(), ( Weights{ { 1, 11 } } ) );

   Resync third( *stub, &Stub::Resync );
   EXPECT_TRUE( third.end().ok() );
}

/// Where nobody may keep others waiting.
class ImpatientBgpLinkWeights : public BgpLinkWeights {
 protected:
   ImpatientBgpLinkWeights()
      : BgpLinkWeights( StreamOptions{ .stallTime = std::chrono::milliseconds( 1 ) } ) {}
};

TEST_F( ImpatientBgpLinkWeights, AResyncThatIsSilentForTooLongGivesWayToAnother ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   Resync silent( *stub, &Stub::Resync );
   silent.send( message( { { 1, 11 } } ) );
   while ( list().at( 1 ) != 11 ) {}
   const auto succeeds = [this] {
      Resync other( *stub, &Stub::Resync );
      other.send( message( { { 2, 12 } } ) );
      return other.end().ok();
   };
   const auto end = deadline();
   while ( !succeeds() ) { ASSERT_LT( std::chrono::system_clock::now(), end ); }
   EXPECT_EQ( list(), ( Weights{ { 2, 12 } } ) );

   const grpc::Status status = silent.finish();
   EXPECT_EQ( status.error_code(), StatusCode::ABORTED );
   EXPECT_THAT(
      status.error_message(),
      testing::MatchesRegex( "nothing was sent for [0-9]+ ms, and another client's resync "
                             "has begun" ) );
   EXPECT_EQ( list(), ( Weights{ { 2, 12 } } ) ) << "and it has removed nothing";
}

TEST_F( BgpLinkWeights, WhatAnotherClientSetsDuringAResyncStaysAndWhatItDeletesIsGone ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   const auto other = v1::BgpLinkWeights::NewStub( connection() );
   Resync resync( *other, &Stub::Resync );
   resync.send( message( { { 1, 11 }, { 2, 12 } } ) );
   while ( list().at( 2 ) != 12 ) {}
   ASSERT_TRUE( set( { { 3, 13 }, { 50, 1 } } ).ok() );
   EXPECT_EQ( del( { 2 } ), 1U );
   ASSERT_TRUE( resync.end().ok() );
   EXPECT_EQ( list(), ( Weights{ { 1, 11 }, { 3, 13 }, { 50, 1 } } ) );
   EXPECT_EQ( resync.response.set(), 2U );
   EXPECT_EQ( resync.response.deleted(), 2U );
}

TEST_F( BgpLinkWeights, AfterAnAbandonedResyncEverythingGoesOnAsBefore ) {
   ASSERT_TRUE( set( numbered( 0, 5 ) ).ok() );
   {
      Resync abandoned( *stub, &Stub::Resync );
      abandoned.send( message( { { 77, 1 } } ) );
      while ( list().count( 77 ) == 0 ) {}
   }
   untilNoResync();
   EXPECT_EQ( del( { 77, 0 } ), 2U );
   ASSERT_TRUE( set( { { 1, 11 }, { 80, 1 } } ).ok() );
   EXPECT_EQ( list(), ( Weights{ { 1, 11 }, { 2, 10 }, { 3, 10 }, { 4, 10 }, { 80, 1 } } ) );

   // What was sent to the abandoned one, or set since, does not count as sent to the next.
   Resync next( *stub, &Stub::Resync );
   next.send( message( { { 2, 12 } } ) );
   ASSERT_TRUE( next.end().ok() );
   EXPECT_EQ( list(), ( Weights{ { 2, 12 } } ) );
}

TEST_F( BgpLinkWeights, OthersAreServedWhileAClientKeepsAResyncOpen ) {
   Resync open( *stub, &Stub::Resync );
   open.send( message( { { 1, 11 } } ) );
   EXPECT_TRUE( set( numbered( 2, 5 ) ).ok() );
   EXPECT_GE( list().size(), 3U );
   EXPECT_EQ( del( { 2 } ), 1U );
}

} // namespace
} // namespace VeloAgent::BgpLinkWeightsTest
