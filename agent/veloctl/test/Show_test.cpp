#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/introspection.pb.h"

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;

class ShowTest : public VeloctlTest {
 protected:
   void agentHas( const GetStatusResponse & status ) {
      answer< GetStatusRequest, GetStatusResponse >(
         "Introspection/GetStatus", [status]( const GetStatusRequest & ) { return status; } );
   }

   static GetStatusResponse someStatus() {
      GetStatusResponse status;
      status.set_version( "1.0.0" );
      status.set_ready( true );
      status.set_uptime_ms( 93'784'567 );
      auto & mount = *status.add_mounts();
      mount.set_path( "policyMap/counters/pbr" );
      mount.set_type( "PolicyMap::Counters::Status" );
      mount.set_database( GetStatusResponse::DATABASE_SHARED_MEMORY );
      mount.set_present( true );
      auto & stream = *status.mutable_pbr_stream();
      stream.set_mode( GetStatusResponse::MODE_STREAMING );
      stream.set_initial_scan_done( true );
      stream.set_short_keys( 100 );
      stream.set_last_short_key( 120 );
      stream.set_novel_keys( 3 );
      stream.set_backlog( 7 );
      auto & scheduler = *status.mutable_scheduler();
      scheduler.set_runs( 5000 );
      scheduler.set_overstays( 2 );
      scheduler.set_longest_overstay_us( 850 );
      scheduler.set_waiting( 1 );
      return status;
   }
};

TEST_F( ShowTest, TheStatusIsToldToPeople ) {
   agentHas( someStatus() );
   EXPECT_EQ( output( { "show", "status" } ),
              "velo-agent      1.0.0, ready\n"
              "up              1d 02:03:04.567\n"
              "pbr stream      streaming, first scan done\n"
              "backlog         7 records\n"
              "novel keys      3\n"
              "bookmark        none, the next run begins at the beginning\n"
              "short keys      100 in use, 120 was the last given out\n"
              "tasks           5000 runs, 1 waiting, 2 overstays, the longest 850 us\n"
              "\n"
              "MOUNT                   TYPE                         DATABASE       STATE\n"
              "policyMap/counters/pbr  PolicyMap::Counters::Status  shared_memory  present\n" );
}

TEST_F( ShowTest, TheStatusIsToldToProgramsFieldByField ) {
   GetStatusResponse status;
   status.mutable_pbr_stream()->set_bookmark( 18446744073709551615U );
   agentHas( status );
   EXPECT_EQ( output( { "show", "status", "--format", "json" } ),
              R"({"version":"","ready":false,"uptime_ms":0,"mounts":[],)"
              R"("pbr_stream":{"mode":"unspecified","initial_scan_done":false,"short_keys":0,)"
              R"("last_short_key":0,"novel_keys":0,"backlog":0,"bookmark":18446744073709551615}})"
              "\n" );
}

TEST_F( ShowTest, TheBacklogIsTheStreamsPartOfTheStatus ) {
   GetStatusResponse status = someStatus();
   status.mutable_pbr_stream()->set_bookmark( 17 );
   agentHas( status );
   EXPECT_EQ( output( { "show", "backlog" } ), "pbr stream      streaming, first scan done\n"
                                               "backlog         7 records\n"
                                               "novel keys      3\n"
                                               "bookmark        short key 17\n" );
}

TEST_F( ShowTest, WhatBecameOfTheRecordsIsToldWithTheBacklog ) {
   GetStatusResponse status = someStatus();
   auto & account = *status.mutable_pbr_stream()->mutable_account();
   account.set_arrived( 137 );
   account.set_delivered( 100 );
   account.set_coalesced( 20 );
   account.set_cancelled( 8 );
   account.set_dropped( 2 );
   agentHas( status );
   EXPECT_THAT(
      output( { "show", "backlog" } ),
      testing::HasSubstr(
         "backlog         7 records\n"
         "account         137 arrived, 100 delivered, 20 coalesced, 8 cancelled, 2 dropped\n" ) );
}

TEST_F( ShowTest, TasksAreATable ) {
   answer< ListTasksRequest, ListTasksResponse >( "Introspection/ListTasks",
                                                  []( const ListTasksRequest & ) {
                                                     ListTasksResponse tasks;
                                                     auto & task = *tasks.add_tasks();
                                                     task.set_name( "drain\x1b[2J" );
                                                     task.set_priority( 3 );
                                                     task.set_runs( 123456 );
                                                     return tasks;
                                                  } );
   EXPECT_EQ( output( { "show", "tasks" } ),
              "TASK          PRIORITY    RUNS  YIELDS  DONE  PENDING  OVERSTAYS\n"
              "drain\\x1b[2J         3  123456       0     0        0          0\n" );
}

TEST_F( ShowTest, ClientsAreATable ) {
   answer< ListClientsRequest, ListClientsResponse >(
      "Introspection/ListClients", []( const ListClientsRequest & ) {
         ListClientsResponse clients;
         auto & client = *clients.add_clients();
         client.set_id( 4 );
         client.set_peer( "unix:" );
         client.set_stream( ListClientsResponse::STREAM_PBR_COUNTERS );
         client.set_state( ListClientsResponse::STATE_IN_SYNC );
         client.set_told( 1000 );
         return clients;
      } );
   EXPECT_EQ( output( { "show", "clients" } ),
              "ID  PEER   STREAM        STATE    QUEUE  TOLD  RECORDS  MESSAGES  IDLE MS\n"
              " 4  unix:  pbr_counters  in_sync      0  1000        0         0        0\n" );
}

TEST_F( ShowTest, ParkedRoutesAreATable ) {
   answer< ListParkedRoutesRequest, ListParkedRoutesResponse >(
      "Introspection/ListParkedRoutes", []( const ListParkedRoutesRequest & ) {
         ListParkedRoutesResponse parked;
         auto & group = *parked.add_parked();
         group.set_fec_id( 7 );
         group.set_nexthop_group_id( 8 );
         group.set_routes( 9 );
         return parked;
      } );
   EXPECT_EQ( output( { "show", "parked" } ), "FEC  NEXTHOP GROUP  ROUTES\n"
                                              "  7              8       9\n" );
}

TEST_F( ShowTest, AnEnumValueOfALaterAgentIsShownAsItsNumber ) {
   GetStatusResponse status;
   status.mutable_pbr_stream()->set_mode( static_cast< GetStatusResponse::Mode >( 9 ) );
   agentHas( status );
   EXPECT_THAT( output( { "show", "backlog" } ), testing::HasSubstr( "9, first scan going on" ) );
}

} // namespace
} // namespace VeloCtl
