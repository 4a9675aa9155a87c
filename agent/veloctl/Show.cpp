#include "agent/veloctl/Show.h"

#include "agent/Printable.h"
#include "agent/veloctl/Client.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/MessageJson.h"
#include "agent/veloctl/Session.h"
#include "agent/veloctl/Table.h"
#include "velo/rpc/v1/introspection.pb.h"

#include <fmt/format.h>
#include <ostream>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;
using VeloAgent::printable;

template< typename Number >
std::string cell( Number number ) {
   return fmt::format( "{}", number );
}

/// "3d 04:05:06.789"
std::string timeText( std::uint64_t ms ) {
   const std::uint64_t seconds = ms / 1000;
   const std::string clock = fmt::format( "{:02}:{:02}:{:02}.{:03}", seconds / 3600 % 24,
                                          seconds / 60 % 60, seconds % 60, ms % 1000 );
   const std::uint64_t days = seconds / 86400;
   return days == 0 ? clock : fmt::format( "{}d {}", days, clock );
}

void fact( Session & session, const char * what, const std::string & value ) {
   session.line( fmt::format( "{:<16}{}", what, value ) );
}

void factsOf( Session & session, const GetStatusResponse::PbrStream & stream ) {
   fact( session, "pbr stream",
         fmt::format( "{}, first scan {}",
                      wordOf( *GetStatusResponse::Mode_descriptor(), stream.mode() ),
                      stream.initial_scan_done() ? "done" : "going on" ) );
   fact( session, "backlog", fmt::format( "{} records", stream.backlog() ) );
   if ( stream.has_account() ) {
      const auto & account = stream.account();
      fact( session, "account",
            fmt::format( "{} arrived, {} delivered, {} coalesced, {} cancelled, {} dropped",
                         account.arrived(), account.delivered(), account.coalesced(),
                         account.cancelled(), account.dropped() ) );
   }
   fact( session, "novel keys", cell( stream.novel_keys() ) );
   fact( session, "bookmark",
         stream.has_bookmark() ? fmt::format( "short key {}", stream.bookmark() )
                               : std::string( "none, the next run begins at the beginning" ) );
}

void showStatus( Session & session ) {
   const auto status = session.agent().call< GetStatusResponse >( GetStatusRequest() );
   if ( session.json() ) { return session.jsonLine( status ); }

   fact( session, "velo-agent",
         fmt::format( "{}, {}", printable( status.version() ),
                      status.ready() ? "ready" : "not ready yet" ) );
   fact( session, "up", timeText( status.uptime_ms() ) );
   factsOf( session, status.pbr_stream() );
   fact( session, "short keys",
         fmt::format( "{} in use, {} was the last given out", status.pbr_stream().short_keys(),
                      status.pbr_stream().last_short_key() ) );
   const auto & scheduler = status.scheduler();
   fact( session, "tasks",
         fmt::format( "{} runs, {} waiting, {} overstays, the longest {} us", scheduler.runs(),
                      scheduler.waiting(), scheduler.overstays(),
                      scheduler.longest_overstay_us() ) );
   session.line( "" );

   Table mounts{ "MOUNT", "TYPE", "DATABASE", "STATE" };
   for ( const auto & mount : status.mounts() ) {
      mounts.row( { printable( mount.path() ), printable( mount.type() ),
                    wordOf( *GetStatusResponse::Database_descriptor(), mount.database() ),
                    mount.present() ? "present" : "missing" } );
   }
   mounts.print( session.streams.out );
}

void showBacklog( Session & session ) {
   const auto status = session.agent().call< GetStatusResponse >( GetStatusRequest() );
   if ( session.json() ) { return session.jsonLine( status.pbr_stream() ); }
   factsOf( session, status.pbr_stream() );
}

void showTasks( Session & session ) {
   const auto tasks = session.agent().call< ListTasksResponse >( ListTasksRequest() );
   if ( session.json() ) { return session.jsonLine( tasks ); }
   Table table{ "TASK", ">PRIORITY", ">RUNS", ">YIELDS", ">DONE", ">PENDING", ">OVERSTAYS" };
   for ( const auto & task : tasks.tasks() ) {
      table.row( { printable( task.name() ), cell( task.priority() ), cell( task.runs() ),
                   cell( task.yields() ), cell( task.work_done() ), cell( task.work_pending() ),
                   cell( task.overstays() ) } );
   }
   table.print( session.streams.out );
}

void showClients( Session & session ) {
   const auto clients = session.agent().call< ListClientsResponse >( ListClientsRequest() );
   if ( session.json() ) { return session.jsonLine( clients ); }
   Table table{ ">ID",   "PEER",     "STREAM",    "STATE",   ">QUEUE",
                ">TOLD", ">RECORDS", ">MESSAGES", ">IDLE MS" };
   for ( const auto & client : clients.clients() ) {
      table.row( { cell( client.id() ), printable( client.peer() ),
                   wordOf( *ListClientsResponse::Stream_descriptor(), client.stream() ),
                   wordOf( *ListClientsResponse::State_descriptor(), client.state() ),
                   cell( client.queue() ), cell( client.told() ), cell( client.records_sent() ),
                   cell( client.messages_sent() ), cell( client.idle_ms() ) } );
   }
   table.print( session.streams.out );
}

void showParked( Session & session ) {
   const auto parked =
      session.agent().call< ListParkedRoutesResponse >( ListParkedRoutesRequest() );
   if ( session.json() ) { return session.jsonLine( parked ); }
   Table table{ ">FEC", ">NEXTHOP GROUP", ">ROUTES" };
   for ( const auto & group : parked.parked() ) {
      table.row(
         { cell( group.fec_id() ), cell( group.nexthop_group_id() ), cell( group.routes() ) } );
   }
   table.print( session.streams.out );
}

} // namespace

void addShow( Commands & commands ) {
   Commands show = commands.group( "show", "What goes on inside the agent" );
   show.add( "status", "The agent, its mounts and the PBR counters stream", showStatus );
   show.add( "backlog", "What waits to be streamed", showBacklog );
   show.add( "tasks", "The cooperative tasks of the event loop", showTasks );
   show.add( "clients", "Who watches what, and how far each is", showClients );
   show.add( "parked", "MPLS routes that wait for the name of their next-hop group", showParked );
}

} // namespace VeloCtl
