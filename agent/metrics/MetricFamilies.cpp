#include "agent/metrics/MetricFamilies.h"

#include "agent/Inspection.h"
#include "agent/rpc/ConnectionGate.h"
#include "agent/stream/WatchingClients.h"

#include <map>
#include <string>
#include <utility>

namespace VeloAgent {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

using Labels = std::vector< ClientMetric::Label >;

/// One family, filled value by value.
class Family {
 public:
   Family( MetricType type, const char * name, const char * help ) {
      family_.type = type;
      family_.name = std::string( "velo_agent_" ) + name;
      family_.help = help;
   }

   template< typename Value >
   Family & value( Value value, Labels labels = {} ) {
      ClientMetric metric;
      metric.label = std::move( labels );
      ( family_.type == MetricType::Counter ? metric.counter.value : metric.gauge.value ) =
         static_cast< double >( value );
      family_.metric.push_back( std::move( metric ) );
      return *this;
   }

   operator MetricFamily() const { return family_; }

 private:
   MetricFamily family_;
};

Family counter( const char * name, const char * help ) {
   return { MetricType::Counter, name, help };
}

Family gauge( const char * name, const char * help ) { return { MetricType::Gauge, name, help }; }

double seconds( std::chrono::duration< double > time ) { return time.count(); }

class Families {
 public:
   template< typename Value >
   void counter( const char * name, const char * help, Value value ) {
      all.push_back( VeloAgent::counter( name, help ).value( value ) );
   }
   template< typename Value >
   void gauge( const char * name, const char * help, Value value ) {
      all.push_back( VeloAgent::gauge( name, help ).value( value ) );
   }

   std::vector< MetricFamily > all;
};

void agent( Families & families, const Inspection & inspection ) {
   families.all.push_back( gauge( "build_info", "What runs; always 1." )
                              .value( 1, { { "version", VELO_AGENT_VERSION } } ) );
   families.gauge( "start_time_seconds", "When the agent began, in seconds since 1970.",
                   seconds( inspection.began().time_since_epoch() ) );
   families.gauge( "ready", "1 while the health service says SERVING, else 0.",
                   inspection.ready() );
   Family mounted = gauge( "mount_present", "1 if the path is mounted, 0 if nothing is there." );
   for ( const MountReport & mount : inspection.mounts() ) {
      mounted.value( mount.present, { { "path", mount.path } } );
   }
   families.all.push_back( mounted );
}

void pbrStream( Families & families, const PbrStreamReport & stream ) {
   families.gauge( "pbr_streaming", "1 while PBR counters are watched, else 0.", stream.streaming );
   families.gauge( "pbr_initial_scan_done", "1 once the published counters were all seen.",
                   stream.initialScanDone );
   families.gauge( "pbr_short_keys", "Classes that have a short key.", stream.shortKeys );
   families.counter( "pbr_short_keys_assigned_total", "Short keys that were given out.",
                     stream.lastShortKey );
   families.gauge( "pbr_novel_keys", "Short keys whose long key was not told yet.",
                   stream.novelKeys );
   families.gauge( "pbr_backlog_records", "Records that wait to be drained.", stream.backlog );
   families.counter( "pbr_records_arrived_total", "Records that were ever filed to be drained.",
                     stream.account.arrived );
   families.all.push_back( counter( "pbr_records_total", "What became of them; the others wait." )
                              .value( stream.account.delivered, { { "fate", "delivered" } } )
                              .value( stream.account.coalesced, { { "fate", "coalesced" } } )
                              .value( stream.account.cancelled, { { "fate", "cancelled" } } )
                              .value( stream.account.dropped, { { "fate", "dropped" } } ) );
}

void scheduler( Families & families, const Oru::TaskScheduler & scheduler ) {
   const Oru::TaskSchedulerStatistics & seen = scheduler.statistics();
   families.counter( "scheduler_runs_total", "Runs of tasks.", seen.runs );
   families.counter( "scheduler_overstays_total",
                     "Runs that exceeded their slice by more than is tolerated.", seen.overstays );
   families.gauge( "scheduler_longest_overstay_seconds", "The longest of them.",
                   seconds( seen.longestOverstay ) );
   families.gauge( "scheduler_waiting_tasks", "Tasks that wait to be run.", scheduler.pending() );
}

/// Tasks of one name are one: labels must tell the values of a family apart.
void tasks( Families & families, const Oru::TaskScheduler & scheduler ) {
   struct Sums {
      std::uint64_t runs = 0, yields = 0, overstays = 0, work = 0;
      std::size_t pending = 0;
   };
   std::map< std::string, Sums > sumsOf;
   for ( const auto & task : scheduler.tasks() ) {
      Sums & sums = sumsOf[std::string( task->taskName() )];
      sums.runs += task->taskRuns();
      sums.yields += task->taskYieldsTold();
      sums.overstays += task->taskOverstays();
      sums.work += task->taskWorkCount();
      sums.pending += task->taskWorkPending();
   }
   Family runs = counter( "task_runs_total", "Runs of the task." );
   Family yields = counter( "task_yields_total", "How often the task was told to yield." );
   Family overstays =
      counter( "task_overstays_total", "Runs of the task that exceeded their slice." );
   Family work = counter( "task_work_items_total", "Items of work that the task has done." );
   Family pending = gauge( "task_work_pending_items", "Items of work that the task has left." );
   for ( const auto & [name, sums] : sumsOf ) {
      const Labels task = { { "task", name } };
      runs.value( sums.runs, task );
      yields.value( sums.yields, task );
      overstays.value( sums.overstays, task );
      work.value( sums.work, task );
      pending.value( sums.pending, task );
   }
   families.all.insert( families.all.end(), { runs, yields, overstays, work, pending } );
}

const char * nameOf( ClientStream stream ) {
   switch ( stream ) {
   case ClientStream::pbrCounters:
      return "pbr_counters";
   case ClientStream::mplsRoutes:
      return "mpls_routes";
   case ClientStream::standardOutput:
      return "standard_output";
   }
   return "unknown";
}

const char * nameOf( ClientState state ) {
   switch ( state ) {
   case ClientState::snapshot:
      return "snapshot";
   case ClientState::inSync:
      return "in_sync";
   case ClientState::away:
      return "away";
   }
   return "unknown";
}

/// By kind, not by client: those come and go.
void clients( Families & families, const WatchingClients & watching ) {
   std::map< std::pair< ClientStream, ClientState >, std::size_t > count;
   std::map< ClientStream, std::size_t > queued;
   for ( const auto & [id, client] : watching.clients() ) {
      const ClientReport report = client->report();
      ++count[{ report.stream, report.state }];
      queued[report.stream] += report.queue;
   }
   Family clients = gauge( "clients", "Clients that watch, or may still resume." );
   for ( const auto & [kind, clientsOfKind] : count ) {
      clients.value( clientsOfKind,
                     { { "stream", nameOf( kind.first ) }, { "state", nameOf( kind.second ) } } );
   }
   Family queues =
      gauge( "client_queue_keys", "Keys whose change the clients have yet to be told, in sum." );
   for ( const auto & [stream, keys] : queued ) {
      queues.value( keys, { { "stream", nameOf( stream ) } } );
   }
   families.all.insert( families.all.end(), { clients, queues } );
}

void parked( Families & families, const Inspection & inspection ) {
   const auto parked = inspection.parkedRoutes();
   std::size_t routes = 0;
   for ( const auto & each : parked ) { routes += each.count; }
   families.gauge( "mpls_parked_routes", "MPLS routes that wait for the name of a next-hop group.",
                   routes );
   families.gauge( "mpls_parked_groups", "Next-hop groups whose name is waited for.",
                   parked.size() );
}

void connections( Families & families, const ConnectionGate & gate ) {
   families.gauge( "connections", "Connections of clients that are open.", gate.open() );
   families.counter( "connections_accepted_total", "Connections of clients that were let in.",
                     gate.accepted() );
   families.counter( "connections_refused_total",
                     "Connections that were closed at once, for there were too many.",
                     gate.refused() );
}

} // namespace

std::vector< MetricFamily > metricFamiliesOf( const Inspection & inspection ) {
   Families families;
   agent( families, inspection );
   pbrStream( families, inspection.pbrStream() );
   scheduler( families, inspection.scheduler() );
   tasks( families, inspection.scheduler() );
   clients( families, inspection.clients() );
   parked( families, inspection );
   if ( inspection.connections() ) { connections( families, *inspection.connections() ); }
   return families.all;
}

MetricFamily loopAnsweringFamily( bool answering ) {
   return gauge( "loop_answering", "1 if the event loop answered in time; else most is missing." )
      .value( answering );
}

} // namespace VeloAgent
