#include "agent/veloctl/test/TemporaryFile.h"
#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/bgp_link_weights.pb.h"

#include <map>

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

/// An agent that keeps weights, as pages of two.
class WeightsTest : public VeloctlTest {
 protected:
   void SetUp() override {
      answer< BgpLinkWeightsSetRequest, BgpLinkWeightsSetResponse >(
         "BgpLinkWeights/Set", [this]( const BgpLinkWeightsSetRequest & request ) {
            ++requests;
            take( request.weights() );
            return BgpLinkWeightsSetResponse();
         } );
      answer< BgpLinkWeightsDeleteRequest, BgpLinkWeightsDeleteResponse >(
         "BgpLinkWeights/Delete", [this]( const BgpLinkWeightsDeleteRequest & request ) {
            BgpLinkWeightsDeleteResponse response;
            std::uint64_t deleted = 0;
            for ( const auto id : request.interface_ids() ) { deleted += weights.erase( id ); }
            response.set_deleted( deleted );
            return response;
         } );
      answer< BgpLinkWeightsListRequest, BgpLinkWeightsListResponse >(
         "BgpLinkWeights/List", [this]( const BgpLinkWeightsListRequest & request ) {
            return page( request.page_token() );
         } );
      agent.serve( "BgpLinkWeights/Resync", [this]( ServedCall & call ) { resync( call ); } );
   }

   template< typename List >
   void take( const List & list ) {
      for ( const BgpLinkWeight & item : list ) { weights[item.interface_id()] = item.weight(); }
   }

   BgpLinkWeightsListResponse page( const std::string & token ) const {
      BgpLinkWeightsListResponse response;
      auto at = token.empty() ? weights.begin() : weights.lower_bound( std::stoull( token ) );
      for ( ; at != weights.end() && response.weights_size() < 2; ++at ) {
         response.add_weights()->set_interface_id( at->first );
         response.mutable_weights()->rbegin()->set_weight( at->second );
      }
      if ( at != weights.end() ) { response.set_next_page_token( std::to_string( at->first ) ); }
      return response;
   }

   void resync( ServedCall & call ) {
      const auto before = std::exchange( weights, {} );
      BgpLinkWeightsResyncRequest request;
      BgpLinkWeightsResyncResponse response;
      while ( call.receive( request ) ) {
         if ( refuseResync ) { throw Refusal( kAborted, "another resync is in progress" ); }
         ++requests;
         take( request.weights() );
         request.Clear();
      }
      response.set_set( weights.size() );
      for ( const auto & [id, weight] : before ) {
         if ( !weights.contains( id ) ) { response.set_deleted( response.deleted() + 1 ); }
      }
      call.send( response );
   }

   std::map< std::uint64_t, std::uint32_t > weights;
   int requests = 0;
   bool refuseResync = false;
};

TEST_F( WeightsTest, AreSetByPairs ) {
   EXPECT_EQ( output( { "weights", "set", "7=30", "18446744073709551615=0" } ), "2 set\n" );
   EXPECT_THAT( weights, ElementsAre( Pair( 7, 30 ), Pair( UINT64_MAX, 0 ) ) );
}

TEST_F( WeightsTest, AreDeletedByInterface ) {
   weights = { { 1, 1 }, { 2, 2 }, { 3, 3 } };
   EXPECT_EQ( output( { "weights", "delete", "2", "9" } ), "1 deleted\n" );
   EXPECT_EQ( output( { "weights", "delete", "3", "--format", "json" } ), "{\"deleted\":1}\n" );
   EXPECT_THAT( weights, ElementsAre( Pair( 1, 1 ) ) );
}

TEST_F( WeightsTest, AreListedPageByPageInTheOrderOfTheInterfaces ) {
   weights = { { 10, 1 }, { 9, 20 }, { 100, 3 } };
   EXPECT_EQ( output( { "weights", "list" } ), "INTERFACE  WEIGHT\n"
                                               "        9      20\n"
                                               "       10       1\n"
                                               "      100       3\n" );
   EXPECT_EQ( output( { "weights", "list", "--format", "json" } ),
              "{\"weights\":[\n"
              "{\"interface_id\":9,\"weight\":20},\n"
              "{\"interface_id\":10,\"weight\":1},\n"
              "{\"interface_id\":100,\"weight\":3}\n"
              "]}\n" );
}

TEST_F( WeightsTest, WhatIsListedCanBeSetAgain ) {
   weights = { { 10, 1 }, { 9, 20 } };
   const TemporaryFile file( output( { "weights", "list", "--format", "json" } ) );
   weights.clear();
   EXPECT_EQ( output( { "weights", "set", "--from", file.path(), "--format", "json" } ),
              "{\"set\":2}\n" );
   EXPECT_THAT( weights, ElementsAre( Pair( 9, 20 ), Pair( 10, 1 ) ) );
}

TEST_F( WeightsTest, ManyAreSetInSeveralRequests ) {
   std::vector< std::string > arguments = { "weights", "set" };
   for ( int id = 0; id < 2001; ++id ) { arguments.push_back( std::to_string( id ) + "=1" ); }
   EXPECT_EQ( output( arguments ), "2001 set\n" );
   EXPECT_EQ( weights.size(), 2001U );
   EXPECT_EQ( requests, 3 );
}

TEST_F( WeightsTest, AResyncLeavesWhatTheFileHas ) {
   weights = { { 1, 1 }, { 2, 2 } };
   const TemporaryFile file( R"({"weights":[{"interface_id":2,"weight":3},)"
                             R"({"interface_id":4,"weight":5}]})" );
   EXPECT_EQ( output( { "resync", "weights", "--from", file.path() } ), "2 set, 1 deleted\n" );
   EXPECT_THAT( weights, ElementsAre( Pair( 2, 3 ), Pair( 4, 5 ) ) );
   EXPECT_EQ( output( { "weights", "resync", "--from", file.path(), "--format", "json" } ),
              "{\"set\":2,\"deleted\":0}\n" );
}

TEST_F( WeightsTest, AResyncToNothingDeletesAll ) {
   weights = { { 1, 1 } };
   const TemporaryFile file( R"({"weights":[]})" );
   EXPECT_EQ( output( { "resync", "weights", "--from", file.path() } ), "0 set, 1 deleted\n" );
}

TEST_F( WeightsTest, ADryRunShowsWhatWouldBeDoneAndDoesNothing ) {
   weights = { { 1, 1 }, { 2, 2 }, { 3, 3 } };
   const auto before = weights;
   const TemporaryFile file( R"({"weights":[{"interface_id":4,"weight":5},)"
                             R"({"interface_id":2,"weight":3},{"interface_id":3,"weight":3}]})" );
   EXPECT_EQ( output( { "resync", "weights", "--from", file.path(), "--dry-run" } ),
              "delete  interface 1 weight 1\n"
              "set     interface 2 weight 3\n"
              "set     interface 4 weight 5\n"
              "keep    interface 3 weight 3\n"
              "1 to delete, 2 to set, 1 to keep; nothing has been changed\n" );
   EXPECT_EQ(
      output( { "resync", "weights", "--from", file.path(), "--dry-run", "--format", "json" } ),
      R"({"delete":[{"interface_id":1,"weight":1}],)"
      R"("set":[{"interface_id":2,"weight":3},{"interface_id":4,"weight":5}],)"
      R"("keep":[{"interface_id":3,"weight":3}]})"
      "\n" );
   EXPECT_EQ( weights, before );
}

TEST_F( WeightsTest, AResyncThatTheAgentRefusesFails ) {
   refuseResync = true;
   const TemporaryFile file( R"({"weights":[{"interface_id":4,"weight":5}]})" );
   EXPECT_EQ( complaint( 1, { "resync", "weights", "--from", file.path() } ),
              "veloctl: another resync is in progress (ABORTED)" );
}

TEST_F( WeightsTest, AFileThatIsWrongChangesNothing ) {
   const TemporaryFile twice( R"({"weights":[{"interface_id":4,"weight":5},)"
                              R"({"interface_id":4,"weight":6}]})" );
   EXPECT_EQ( complaint( 2, { "resync", "weights", "--from", twice.path() } ),
              "veloctl: " + twice.path() +
                 ": weights[1]: interface 4 weight 6 is there already; each may come once" );
   const TemporaryFile wrong( R"({"weights":[{"interface_id":4,"weight":-5}]})" );
   EXPECT_EQ( complaint( 2, { "weights", "set", "--from", wrong.path() } ),
              "veloctl: " + wrong.path() +
                 ": weights[0].weight: -5 is not a number from 0 to 4294967295" );
   const TemporaryFile other( R"({"overrides":[]})" );
   EXPECT_EQ( complaint( 2, { "resync", "weights", "--from", other.path() } ),
              "veloctl: " + other.path() + ": there is no \"overrides\" here, only weights" );
   EXPECT_EQ( requests, 0 );
}

TEST_F( WeightsTest, ArgumentsThatAreWrongAreAnsweredWithTheRightOnes ) {
   EXPECT_EQ( complaint( 2, { "weights", "set", "7:30" } ),
              "veloctl: \"7:30\" is not INTERFACE=WEIGHT, for example 7=30" );
   EXPECT_EQ( complaint( 2, { "weights", "set", "7=4294967296" } ),
              "veloctl: WEIGHT: \"4294967296\" is not a number from 0 to 4294967295" );
   EXPECT_EQ( complaint( 2, { "weights", "delete", "eth0" } ),
              "veloctl: INTERFACE: \"eth0\" is not a number from 0 to 18446744073709551615" );
   EXPECT_EQ(
      complaint( 2, { "weights", "set" } ),
      "veloctl: weights set takes INTERFACE=WEIGHT, for example 7=30, or else --from FILE" );
   EXPECT_THAT( complaint( 2, { "weights", "resync" } ), HasSubstr( "--from is required" ) );
}

} // namespace
} // namespace VeloCtl
