#include "agent/Readiness.h"
#include "agent/test/RpcFixture.h"

#include <gmock/gmock.h>
#include <velo/rpc/v1/introspection.grpc.pb.h>
#include <velo/rpc/v1/switch_state.grpc.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;
using testing::Each;
using testing::Property;
using testing::UnorderedElementsAre;

/// Takes records and forgets them.
class Consumer final : public VeloSdkRpc::PbrCountersFrontend {
   void appendItem( const VeloSdkRpc::PbrCounters &,
                    VeloSdkRpc::PbrCountersEncodingFlags ) override {}
   void push() override {}
};

class Client final : public WatchingClient {
 public:
   explicit Client( ClientReport report ) : report_( std::move( report ) ) {}

 private:
   ClientReport report() const override { return report_; }

   const ClientReport report_;
};

class IntrospectionTest : public RpcFixture {
 protected:
   using Stub = v1::Introspection::Stub;

   v1::GetStatusResponse status() { return answer( &Stub::GetStatus, v1::GetStatusRequest() ); }

   v1::ListTasksResponse::Task task( const std::string & name ) {
      const auto tasks = answer( &Stub::ListTasks, v1::ListTasksRequest() );
      for ( const auto & task : tasks.tasks() ) {
         if ( task.name() == name ) { return task; }
      }
      ADD_FAILURE() << "no task " << name << " in " << tasks.DebugString();
      return {};
   }

   template< typename Request, typename Response >
   Response answer( grpc::Status ( Stub::*method )( grpc::ClientContext *, const Request &,
                                                    Response * ),
                    const Request & request ) {
      Response response;
      const grpc::Status status = call( *stub, method, request, response );
      EXPECT_TRUE( status.ok() ) << status.error_message();
      return response;
   }

   /// Classes `from` to `to` of one policy map, in the tree when this returns.
   void publish( int from, int to ) {
      v1::PublishPbrCountersRequest request;
      for ( int n = from; n < to; ++n ) {
         auto & set = *request.add_changes()->mutable_set_class();
         set.set_policy( "policy" );
         set.set_class_name( std::to_string( n ) );
      }
      v1::PublishPbrCountersResponse response;
      const auto south = v1::SwitchState::NewStub( connection() );
      ASSERT_TRUE(
         call( *south, &v1::SwitchState::Stub::PublishPbrCounters, request, response ).ok() );
   }

   const std::unique_ptr< Stub > stub = v1::Introspection::NewStub( connection() );
};

TEST_F( IntrospectionTest, EveryMountIsListedWithItsType ) {
   const auto mounts = status().mounts();
   std::vector< std::string > seen;
   for ( const auto & mount : mounts ) {
      seen.push_back( mount.path() + ' ' + mount.type() + ' ' +
                      v1::GetStatusResponse::Database_Name( mount.database() ) );
   }
   EXPECT_THAT( seen, UnorderedElementsAre(
                         "policyMap/counters/pbr PolicyMap::Counters::PolicyMapTypeCounters "
                         "DATABASE_SHARED_MEMORY",
                         "routing/bgp/sdk/linkweight Quon::Dir DATABASE_STATE",
                         "routing/rib/fibOverride/config/sdk Routing::Fib::FibOverrideConfig "
                         "DATABASE_STATE",
                         "routing/hardware/mpls/status Mpls::Hardware::Status DATABASE_STATE" ) );
   EXPECT_THAT( mounts, Each( Property( &v1::GetStatusResponse::Mount::present, true ) ) );
}

TEST_F( IntrospectionTest, AnIdleStreamKeepsShortKeysAndNoBacklog ) {
   publish( 0, 7 );
   const auto stream = status().pbr_stream();
   EXPECT_EQ( stream.mode(), v1::GetStatusResponse::MODE_IDLE );
   EXPECT_TRUE( stream.initial_scan_done() );
   EXPECT_EQ( stream.short_keys(), 7U );
   EXPECT_EQ( stream.last_short_key(), 7U );
   EXPECT_EQ( stream.backlog(), 0U );
}

TEST_F( IntrospectionTest, AStreamThatIsWatchedSaysSo ) {
   onTheLoop( []( Parts & parts ) {
      parts.managers.pbrCounters().startWatching( Lumo::makeNode< Consumer >() );
   } );
   publish( 0, 5 );
   const auto stream = status().pbr_stream();
   EXPECT_EQ( stream.mode(), v1::GetStatusResponse::MODE_STREAMING );
   EXPECT_EQ( stream.short_keys(), 5U );
}

TEST_F( IntrospectionTest, WhatWaitsToBeDrainedIsCounted ) {
   onTheLoop( []( Parts & parts ) {
      parts.managers.pbrCounters().startWatching( Lumo::makeNode< Consumer >() );
   } );
   // In one go: what is written on the loop waits for the task that drains it.
   const auto backlog = onTheLoop( []( Parts & parts ) {
      auto & counters = parts.managers.pbrCounters();
      const auto before = parts.inspection.pbrStream().backlog;
      counters.backlog()->backlogIs( VeloSdkRpc::PbrCounters( 77, {}, nullptr, false ) );
      return parts.inspection.pbrStream().backlog - before;
   } );
   EXPECT_EQ( backlog, 1U );
}

TEST_F( IntrospectionTest, EveryRecordIsAccountedFor ) {
   onTheLoop( []( Parts & parts ) {
      parts.managers.pbrCounters().startWatching( Lumo::makeNode< Consumer >() );
      auto & backlog = *parts.managers.pbrCounters().backlog();
      backlog.backlogIs( VeloSdkRpc::PbrCounters( 77, {}, nullptr, false ) );
      backlog.backlogIs( VeloSdkRpc::PbrCounters( 77, {}, nullptr, true ) );
      backlog.backlogIs( VeloSdkRpc::PbrCounters( 78, {}, nullptr, false ) );
      backlog.backlogDel( 78 );
   } );
   publish( 0, 5 );
   const auto stream = status().pbr_stream();
   const auto & account = stream.account();
   EXPECT_GE( account.arrived(), 8U );
   EXPECT_GE( account.delivered(), 5U );
   EXPECT_GE( account.coalesced(), 1U );
   EXPECT_EQ( account.cancelled(), 1U );
   EXPECT_EQ( account.dropped(), 0U );
   EXPECT_EQ( account.arrived(), account.delivered() + account.coalesced() + account.cancelled() +
                                    account.dropped() + stream.backlog() );
}

TEST_F( IntrospectionTest, ReadyIsWhatTheAgentSays ) {
   EXPECT_FALSE( status().ready() );
   onTheLoop( []( Parts & parts ) { parts.inspection.readyIs( true ); } );
   EXPECT_TRUE( status().ready() );
   EXPECT_FALSE( status().version().empty() );
}

TEST_F( IntrospectionTest, ReadinessComesWithTheFirstScan ) {
   publish( 0, 20'000 );
   const auto readyAtOnce = onTheLoop( []( Parts & parts ) {
      parts.managers.pbrCounters().startWatching( Lumo::makeNode< Consumer >() );
      return parts.inspection.pbrStream().initialScanDone;
   } );
   std::promise< bool > scanned;
   Lumo::Ptr< Readiness > readiness;
   onTheLoop( [&]( Parts & parts ) {
      readiness = Lumo::makeNode< Readiness >(
         [&] { scanned.set_value( parts.inspection.pbrStream().initialScanDone ); } );
      readiness->watch( parts.managers.pbrCounters() );
      EXPECT_EQ( readiness->ready(), readyAtOnce );
   } );
   std::future< bool > done = scanned.get_future();
   ASSERT_EQ( done.wait_until( deadline() ), std::future_status::ready );
   EXPECT_TRUE( done.get() );
   onTheLoop( [&]( Parts & ) {
      EXPECT_TRUE( readiness->ready() );
      readiness = nullptr;
   } );
}

TEST_F( IntrospectionTest, TasksShowTheirRunsAndTheirWork ) {
   publish( 0, 1'000 );
   const auto writer = task( "CounterTreeWriter" );
   EXPECT_EQ( writer.priority(), TreeWriter::kPriority );
   EXPECT_GE( writer.runs(), 1U );
   EXPECT_EQ( writer.work_done(), 1'000U );
   EXPECT_EQ( writer.work_pending(), 0U );
   EXPECT_GE( status().scheduler().runs(), writer.runs() );
}

TEST_F( IntrospectionTest, ReadingDisturbsNothing ) {
   publish( 0, 10 );
   const auto before = status();
   for ( int n = 0; n < 10; ++n ) {
      answer( &Stub::ListTasks, v1::ListTasksRequest() );
      answer( &Stub::ListClients, v1::ListClientsRequest() );
      answer( &Stub::ListParkedRoutes, v1::ListParkedRoutesRequest() );
   }
   const auto after = status();
   EXPECT_EQ( after.pbr_stream().SerializeAsString(), before.pbr_stream().SerializeAsString() );
   EXPECT_EQ( after.scheduler().SerializeAsString(), before.scheduler().SerializeAsString() );
}

TEST_F( IntrospectionTest, ClientsAreListedWithTheirQueues ) {
   Client client( { .peer = "unix:",
                    .stream = ClientStream::mplsRoutes,
                    .state = ClientState::away,
                    .queue = 1,
                    .told = 2,
                    .recordsSent = 3,
                    .messagesSent = 4,
                    .idleMs = 5 } );
   const auto id = onTheLoop( [&]( Parts & parts ) { return parts.clients.enter( client ); } );
   const auto clients = answer( &Stub::ListClients, v1::ListClientsRequest() );
   ASSERT_EQ( clients.clients_size(), 1 );
   v1::ListClientsResponse::Client expected;
   expected.set_id( id );
   expected.set_peer( "unix:" );
   expected.set_stream( v1::ListClientsResponse::STREAM_MPLS_ROUTES );
   expected.set_state( v1::ListClientsResponse::STATE_AWAY );
   expected.set_queue( 1 );
   expected.set_told( 2 );
   expected.set_records_sent( 3 );
   expected.set_messages_sent( 4 );
   expected.set_idle_ms( 5 );
   EXPECT_EQ( clients.clients( 0 ).DebugString(), expected.DebugString() );
   onTheLoop( [&]( Parts & parts ) { parts.clients.leave( id ); } );
   EXPECT_EQ( answer( &Stub::ListClients, v1::ListClientsRequest() ).clients_size(), 0 );
}

TEST_F( IntrospectionTest, RoutesThatWaitForANameAreCountedByGroup ) {
   onTheLoop( []( Parts & parts ) { parts.managers.mplsRoutes().startWatching( []( auto ) {} ); } );
   EXPECT_EQ( answer( &Stub::ListParkedRoutes, v1::ListParkedRoutesRequest() ).parked_size(), 0 );
   onTheLoop( []( Parts & parts ) {
      const auto & machine = parts.managers.mplsRoutes().sm();
      const auto fecId = Plink::Fib::FecId::nexthopGroupIdToFecId( 42 );
      machine->fecIdToMplsRouteKeySetIs( fecId )->mplsRouteKeySetIs( Mpls::RouteKey( 100 ) );
   } );
   const auto parked = answer( &Stub::ListParkedRoutes, v1::ListParkedRoutesRequest() );
   ASSERT_EQ( parked.parked_size(), 1 );
   EXPECT_EQ( parked.parked( 0 ).nexthop_group_id(), 42U );
   EXPECT_EQ( parked.parked( 0 ).fec_id(), Plink::Fib::FecId::nexthopGroupIdToFecId( 42 ).value() );
   EXPECT_EQ( parked.parked( 0 ).routes(), 1U );
}

} // namespace
} // namespace VeloAgent
