#include "agent/rpc/IntrospectionService.h"

#include "agent/Inspection.h"
#include "agent/rpc/UnaryCall.h"
#include "agent/stream/WatchingClients.h"

#include <velo/rpc/v1/introspection.grpc.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;

void fill( v1::GetStatusResponse::Mount & to, const MountReport & mount ) {
   to.set_path( mount.path );
   to.set_type( mount.type );
   to.set_database( mount.database == MountDatabase::state
                       ? v1::GetStatusResponse::DATABASE_STATE
                       : v1::GetStatusResponse::DATABASE_SHARED_MEMORY );
   to.set_present( mount.present );
}

void fill( v1::GetStatusResponse::Account & to,
           const VeloSdkRpc::PbrCountersBacklogAccount & account ) {
   to.set_arrived( account.arrived );
   to.set_delivered( account.delivered );
   to.set_coalesced( account.coalesced );
   to.set_cancelled( account.cancelled );
   to.set_dropped( account.dropped );
}

void fill( v1::GetStatusResponse::PbrStream & to, const PbrStreamReport & stream ) {
   to.set_mode( stream.streaming ? v1::GetStatusResponse::MODE_STREAMING
                                 : v1::GetStatusResponse::MODE_IDLE );
   to.set_initial_scan_done( stream.initialScanDone );
   to.set_short_keys( stream.shortKeys );
   to.set_last_short_key( stream.lastShortKey );
   to.set_novel_keys( stream.novelKeys );
   to.set_backlog( stream.backlog );
   if ( stream.bookmark ) { to.set_bookmark( *stream.bookmark ); }
   fill( *to.mutable_account(), stream.account );
}

void fill( v1::GetStatusResponse::Scheduler & to, const Oru::TaskScheduler & scheduler ) {
   using Microseconds = std::chrono::microseconds;
   const Oru::TaskSchedulerStatistics & seen = scheduler.statistics();
   const auto longest = std::chrono::ceil< Microseconds >( seen.longestOverstay );
   to.set_runs( seen.runs );
   to.set_overstays( seen.overstays );
   to.set_longest_overstay_us( static_cast< std::uint64_t >( longest.count() ) );
   to.set_waiting( scheduler.pending() );
}

void fill( v1::ListTasksResponse::Task & to, const Oru::Task & task ) {
   to.set_name( std::string( task.taskName() ) );
   to.set_priority( task.taskPriority() );
   to.set_runs( task.taskRuns() );
   to.set_yields( task.taskYieldsTold() );
   to.set_work_done( task.taskWorkCount() );
   to.set_work_pending( task.taskWorkPending() );
   to.set_overstays( task.taskOverstays() );
}

v1::ListClientsResponse::Stream messageOf( ClientStream stream ) {
   switch ( stream ) {
   case ClientStream::pbrCounters:
      return v1::ListClientsResponse::STREAM_PBR_COUNTERS;
   case ClientStream::mplsRoutes:
      return v1::ListClientsResponse::STREAM_MPLS_ROUTES;
   case ClientStream::standardOutput:
      return v1::ListClientsResponse::STREAM_STANDARD_OUTPUT;
   }
   return v1::ListClientsResponse::STREAM_UNSPECIFIED;
}

v1::ListClientsResponse::State messageOf( ClientState state ) {
   switch ( state ) {
   case ClientState::snapshot:
      return v1::ListClientsResponse::STATE_SNAPSHOT;
   case ClientState::inSync:
      return v1::ListClientsResponse::STATE_IN_SYNC;
   case ClientState::away:
      return v1::ListClientsResponse::STATE_AWAY;
   }
   return v1::ListClientsResponse::STATE_UNSPECIFIED;
}

void fill( v1::ListClientsResponse::Client & to, WatchingClients::Id id,
           const ClientReport & client ) {
   to.set_id( id );
   to.set_peer( client.peer );
   to.set_stream( messageOf( client.stream ) );
   to.set_state( messageOf( client.state ) );
   to.set_queue( client.queue );
   to.set_told( client.told );
   to.set_records_sent( client.recordsSent );
   to.set_messages_sent( client.messagesSent );
   to.set_idle_ms( client.idleMs );
}

class IntrospectionService final : public v1::Introspection::CallbackService {
 public:
   IntrospectionService( EventLoop & loop, const Inspection & inspection )
      : loop_( loop ), inspection_( inspection ) {}

 private:
   using Context = grpc::CallbackServerContext;
   using Reactor = grpc::ServerUnaryReactor;

   Reactor * GetStatus( Context * context, const v1::GetStatusRequest *,
                        v1::GetStatusResponse * response ) override {
      return unaryCall( loop_, *context, [this, response] {
         response->set_version( VELO_AGENT_VERSION );
         response->set_ready( inspection_.ready() );
         response->set_uptime_ms( static_cast< std::uint64_t >( inspection_.uptime().count() ) );
         for ( const MountReport & mount : inspection_.mounts() ) {
            fill( *response->add_mounts(), mount );
         }
         fill( *response->mutable_pbr_stream(), inspection_.pbrStream() );
         fill( *response->mutable_scheduler(), inspection_.scheduler() );
      } );
   }

   Reactor * ListTasks( Context * context, const v1::ListTasksRequest *,
                        v1::ListTasksResponse * response ) override {
      return unaryCall( loop_, *context, [this, response] {
         for ( const auto & task : inspection_.scheduler().tasks() ) {
            fill( *response->add_tasks(), *task );
         }
      } );
   }

   Reactor * ListClients( Context * context, const v1::ListClientsRequest *,
                          v1::ListClientsResponse * response ) override {
      return unaryCall( loop_, *context, [this, response] {
         for ( const auto & [id, client] : inspection_.clients().clients() ) {
            fill( *response->add_clients(), id, client->report() );
         }
      } );
   }

   Reactor * ListParkedRoutes( Context * context, const v1::ListParkedRoutesRequest *,
                               v1::ListParkedRoutesResponse * response ) override {
      return unaryCall( loop_, *context, [this, response] {
         for ( const auto & parked : inspection_.parkedRoutes() ) {
            auto & to = *response->add_parked();
            to.set_fec_id( parked.fecId.value() );
            to.set_nexthop_group_id( Plink::Fib::FecId::fecIdToNexthopGroupId( parked.fecId ) );
            to.set_routes( parked.count );
         }
      } );
   }

   EventLoop & loop_;
   const Inspection & inspection_;
};

} // namespace

std::unique_ptr< grpc::Service > makeIntrospectionService( EventLoop & loop,
                                                           const Inspection & inspection ) {
   return std::make_unique< IntrospectionService >( loop, inspection );
}

} // namespace VeloAgent
