#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/mpls_route_programming.pb.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

#include <deque>

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using Opened = PbrCountersWatchResponse::Opened;

class WatchTest : public VeloctlTest {
 protected:
   using Message = PbrCountersWatchResponse;

   /// What one call is served, and how it ends: with `refusal`, or when the client goes.
   struct Script {
      std::vector< Message > messages;
      std::optional< Refusal > refusal{};
   };

   static Message opened( Opened::Outcome outcome, const std::string & token = "" ) {
      Message message;
      message.mutable_opened()->set_outcome( outcome );
      message.set_resume_token( token );
      return message;
   }

   static PbrCountersRecord record( std::uint64_t key, std::uint64_t packets ) {
      PbrCountersRecord record;
      record.set_short_key( key );
      record.mutable_counters()->set_packets( packets );
      record.mutable_counters()->set_bytes( 84 * packets );
      return record;
   }

   static PbrCountersRecord newRecord( std::uint64_t key, const std::string & name,
                                       std::uint64_t packets ) {
      PbrCountersRecord its = record( key, packets );
      its.mutable_long_key()->set_policy( "web" );
      its.mutable_long_key()->set_class_name( name );
      return its;
   }

   static PbrCountersRecord deletion( std::uint64_t key ) {
      PbrCountersRecord its;
      its.set_short_key( key );
      its.set_deleted( true );
      return its;
   }

   static Message batch( const std::vector< PbrCountersRecord > & records,
                         const std::string & token = "" ) {
      Message message;
      for ( const auto & its : records ) { *message.mutable_batch()->add_records() = its; }
      message.mutable_batch()->set_end_of_batch( true );
      message.set_resume_token( token );
      return message;
   }

   static Message inSync() {
      Message message;
      message.mutable_in_sync();
      return message;
   }

   /// The calls are served one after the other, the last script again and again.
   void agentTells( std::deque< Script > scripts ) {
      agent.serve( "PbrCounters/Watch", [this, scripts]( ServedCall & call ) mutable {
         PbrCountersWatchRequest request;
         call.receive( request );
         tokens.push_back( request.resume_token() );
         const Script script = scripts.front();
         if ( scripts.size() > 1 ) { scripts.pop_front(); }
         for ( const Message & message : script.messages ) { call.send( message ); }
         if ( script.refusal ) { throw *script.refusal; }
         call.awaitCancellation();
      } );
   }

   /// With which tokens the calls came.
   std::vector< std::string > tokens;
};

TEST_F( WatchTest, TheSnapshotIsToldLineByLine ) {
   agentTells(
      { { { opened( Opened::OUTCOME_SNAPSHOT ),
            batch( { newRecord( 1, "http", 2 ), newRecord( 2, "dns\n", 0 ) } ), inSync() } } } );
   EXPECT_EQ( output( { "watch", "pbr", "--until-sync" } ),
              "-- opened: snapshot\n"
              "1 web http: 2 packets, 168 bytes (new)\n"
              "2 web dns\\x0a: 0 packets, 0 bytes (new)\n"
              "-- 2 records\n"
              "-- in sync\n" );
}

TEST_F( WatchTest, ProgramsAreToldOneObjectPerLineWithItsLongKey ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT ), batch( { newRecord( 1, "h\xff", 2 ) } ),
                     batch( { record( 1, 3 ) } ), inSync() } } } );
   EXPECT_EQ( output( { "watch", "pbr", "--until-sync", "--format", "json" } ),
              "{\"event\":\"opened\",\"outcome\":\"snapshot\"}\n"
              "{\"event\":\"record\",\"short_key\":1,"
              "\"flags\":{\"encode_long_key\":true,\"delete_key\":false},"
              "\"long_key\":{\"policy\":\"web\",\"class\":\"h\xef\xbf\xbd\",\"class_hex\":\"68ff\","
              "\"acl_rule\":\"\"},\"data\":{\"packets\":2,\"bytes\":168},\"deleted\":false}\n"
              "{\"event\":\"push\",\"records\":1}\n"
              "{\"event\":\"record\",\"short_key\":1,"
              "\"flags\":{\"encode_long_key\":false,\"delete_key\":false},"
              "\"long_key\":{\"policy\":\"web\",\"class\":\"h\xef\xbf\xbd\",\"class_hex\":\"68ff\","
              "\"acl_rule\":\"\"},\"data\":{\"packets\":3,\"bytes\":252},\"deleted\":false}\n"
              "{\"event\":\"push\",\"records\":1}\n"
              "{\"event\":\"in_sync\"}\n" );
}

TEST_F( WatchTest, ACountEndsItInTheMiddleOfABatch ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT ),
                     batch( { newRecord( 1, "a", 1 ), record( 1, 2 ), record( 1, 3 ) } ) } } } );
   EXPECT_THAT( output( { "watch", "pbr", "--count", "2" } ),
                EndsWith( "(new)\n1 web a: 2 packets, 168 bytes\n" ) );
}

TEST_F( WatchTest, ADeletedClassIsToldByNameAndForgotten ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT ), batch( { newRecord( 1, "a", 1 ) } ),
                     batch( { deletion( 1 ) } ), batch( { record( 1, 1 ) } ) } } } );
   const Outcome outcome = run( { "watch", "pbr" } );
   EXPECT_THAT( outcome.out, HasSubstr( "\n1 web a: gone\n" ) );
   EXPECT_EQ( outcome.code, 1 );
   EXPECT_EQ( outcome.err,
              "veloctl: the agent uses short key 1 and has never said what it stands for\n" );
}

TEST_F( WatchTest, AStreamThatBreaksIsResumedWithWhatWasKnown ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT, "t1" ),
                     batch( { newRecord( 1, "a", 1 ) }, "t2" ), inSync() },
                   Refusal( kUnavailable, "it shuts down" ) },
                 { { opened( Opened::OUTCOME_RESUMED, "t3" ), batch( { record( 1, 2 ) } ) } } } );
   EXPECT_EQ( output( { "watch", "pbr", "--count", "2" } ),
              "-- opened: snapshot\n"
              "1 web a: 1 packets, 84 bytes (new)\n"
              "-- 1 record\n"
              "-- in sync\n"
              "!! the agent at " +
                 agent.address() +
                 " is not available: it shuts down; trying again in 100 ms\n"
                 "-- opened: resumed\n"
                 "1 web a: 2 packets, 168 bytes\n"
                 "-- 1 record\n" );
   EXPECT_THAT( tokens, ElementsAre( "", "t2" ) );
}

TEST_F( WatchTest, AResetForgetsAllShortKeys ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT, "t1" ), batch( { newRecord( 1, "a", 1 ) } ),
                     inSync() },
                   Refusal( kResourceExhausted, "too slow" ) },
                 { { opened( Opened::OUTCOME_RESET ), batch( { record( 1, 2 ) } ) } } } );
   const Outcome outcome = run( { "watch", "pbr", "--format", "json" } );
   EXPECT_THAT( outcome.out,
                HasSubstr( R"x({"event":"interrupted","what":"too slow (RESOURCE_EXHAUSTED)",)x"
                           R"("retry_in_ms":100})" ) );
   EXPECT_EQ( outcome.code, 1 );
   EXPECT_THAT( outcome.err, HasSubstr( "short key 1 and has never said" ) );
}

TEST_F( WatchTest, TheSnapshotThatABreakCutOffHasToBeCompleteBeforeItIsInSync ) {
   agentTells(
      { { { opened( Opened::OUTCOME_SNAPSHOT, "t1" ) }, Refusal( kUnavailable, "" ) },
        { { opened( Opened::OUTCOME_RESET ), batch( { newRecord( 5, "a", 1 ) } ), inSync() } } } );
   EXPECT_THAT( output( { "watch", "pbr", "--until-sync" } ),
                HasSubstr( "is not available: no reason was given" ) );
   EXPECT_THAT( tokens, ElementsAre( "", "t1" ) );
}

TEST_F( WatchTest, WhatCannotGetBetterIsAnError ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT ) }, Refusal( kAborted, "taken over" ) } } );
   const Outcome outcome = run( { "watch", "pbr" } );
   EXPECT_EQ( outcome.code, 1 );
   EXPECT_EQ( outcome.err, "veloctl: taken over (ABORTED)\n" );
   EXPECT_EQ( tokens.size(), 1U );
}

TEST_F( WatchTest, AnAgentThatRefusesAtOnceIsNotAskedAgain ) {
   agentTells( { { {}, Refusal( kUnavailable, "not ready yet" ) } } );
   EXPECT_THAT( complaint( 3, { "watch", "pbr" } ), EndsWith( "is not available: not ready yet" ) );
   EXPECT_EQ( tokens.size(), 1U );
}

TEST_F( WatchTest, WithoutRetriesTheFirstBreakIsTheEnd ) {
   agentTells( { { { opened( Opened::OUTCOME_SNAPSHOT ) }, Refusal( kUnavailable, "bye" ) } } );
   const Outcome outcome = run( { "watch", "pbr", "--no-retry" } );
   EXPECT_EQ( outcome.code, 3 );
   EXPECT_THAT( outcome.err, EndsWith( "is not available: bye\n" ) );
   EXPECT_EQ( tokens.size(), 1U );
}

TEST_F( WatchTest, AnAgentThatNeverOpensTheStreamIsGivenUp ) {
   agentTells( { { {}, std::nullopt } } );
   EXPECT_THAT( complaint( 4, { "watch", "pbr", "--timeout", "20" } ),
                HasSubstr( "no answer from" ) );
}

class WatchMplsTest : public VeloctlTest {
 protected:
   void SetUp() override {
      agent.serve( "MplsRouteProgramming/Watch", []( ServedCall & call ) {
         MplsRouteProgrammingWatchResponse message;
         message.mutable_opened();
         call.send( message );
         for ( std::uint32_t label = 16; label < 19; ++label ) {
            auto & route = *message.mutable_batch()->add_routes();
            route.set_label( label );
            route.set_fec_id( 7 );
            route.set_nexthop_group_id( 8 );
            route.set_nexthop_group_name( "to spine" );
            route.set_route_version( 2 );
            route.set_nexthop_group_version( 3 );
            route.set_ack( 4 );
         }
         call.send( message );
         call.awaitCancellation();
      } );
   }
};

TEST_F( WatchMplsTest, RoutesAreToldLineByLine ) {
   EXPECT_EQ(
      output( { "watch", "mpls", "--count", "2" } ),
      "-- opened\n"
      "16 -> group 8 to\\x20spine (fec 7): version 2 of the route, 3 of the group, ack 4\n"
      "17 -> group 8 to\\x20spine (fec 7): version 2 of the route, 3 of the group, ack 4\n" );
}

TEST_F( WatchMplsTest, ProgramsAreToldOneObjectPerLine ) {
   EXPECT_EQ( output( { "watch", "mpls", "--count", "1", "--format", "json" } ),
              "{\"event\":\"opened\"}\n"
              R"({"event":"route","label":16,"fec_id":7,"nexthop_group_id":8,)"
              R"("nexthop_group_name":"to spine","route_version":2,"nexthop_group_version":3,)"
              R"("ack":4})"
              "\n" );
}

} // namespace
} // namespace VeloCtl
