#include "agent/Agent.h"

#include "agent/EventLoop.h"
#include "agent/Inspection.h"
#include "agent/JsonLineFormat.h"
#include "agent/Managers.h"
#include "agent/Output.h"
#include "agent/Printable.h"
#include "agent/ProcessScheduler.h"
#include "agent/Readiness.h"
#include "agent/ServiceManager.h"
#include "agent/StopSignals.h"
#include "agent/SyntheticSource.h"
#include "agent/TextLineFormat.h"
#include "agent/TreeWriter.h"
#include "agent/metrics/Metrics.h"
#include "agent/nftables/NftSource.h"
#include "agent/recording/Recorder.h"
#include "agent/rpc/RpcServer.h"
#include "agent/rpc/RpcServices.h"
#include "agent/stream/MplsStreams.h"
#include "agent/stream/PbrDelivery.h"
#include "agent/stream/StreamTimes.h"

#include <algorithm>
#include <asio/steady_timer.hpp>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <unistd.h>

namespace VeloAgent {

namespace {

std::unique_ptr< LineFormat > formatFor( const Options & options ) {
   if ( options.format == OutputFormat::json ) { return std::make_unique< JsonLineFormat >(); }
   return std::make_unique< TextLineFormat >();
}

void complain( const std::string & what ) {
   std::cerr << "velo-agent: " << printable( what ) << std::endl;
}

/// What the calls in progress have to end beyond the time in which their clients are told what is
/// pending.
constexpr std::chrono::seconds kShutdownGrace{ 1 };

/// How often it is looked whether they have all been told.
constexpr std::chrono::milliseconds kHangUpLook{ 100 };

/// Whether a stream is being sent over RPC.
bool anyStreams( const WatchingClients & clients ) {
   const auto streams = []( const auto & entry ) {
      const ClientReport report = entry.second->report();
      return report.stream != ClientStream::standardOutput && report.state != ClientState::away;
   };
   return std::ranges::any_of( clients.clients(), streams );
}

class Agent final : public SourceListener {
 public:
   Agent( const Options & options, const StopSignals & stopSignals, int outputFd );

   void run();

 private:
   void begin();
   void ready();
   void startServer();
   void startMetrics();
   /// The loop goes on until every call has been answered and every line is written, within a time.
   void end();
   void endCalls();
   void hangUpWhenAllAreTold();
   void stopWhenDone();

   /// Null if counters come from RPC clients only.
   std::unique_ptr< Source > sourceFor( const Options & options );
   /// Null if nothing is to be recorded.
   std::unique_ptr< Recorder > recorderFor( const Options & options );

   void changesFound( CounterChanges changes ) override {
      if ( ending_ ) { return; }
      if ( recorder_ ) { recorder_->published( changes ); }
      writer_->apply( std::move( changes ), [this] { source_->changesApplied(); } );
   }
   void sourceFailed( const std::string & what, std::chrono::milliseconds retryIn ) override {
      tell( format_->sourceError( what, retryIn ) );
   }
   void sourceRecovered() override { tell( format_->sourceRecovered() ); }
   void noted( const std::string & what ) override { tell( format_->note( what ) ); }
   void tell( const std::string & line );
   void outputFailed();
   /// Whether there are lines; otherwise what is noted goes to standard error, and nobody minds
   /// when it cannot.
   bool writesLines() const { return options_.format != OutputFormat::none; }

   const Options & options_;
   const std::unique_ptr< LineFormat > format_;
   const ProcessScheduler scheduler_;
   EventLoop loop_;
   Output output_;

   const Lumo::Ptr< TreeWriter::Root > root_;
   Managers managers_;

   const Lumo::Ptr< TreeWriter > writer_;
   const std::unique_ptr< Source > source_;
   const std::unique_ptr< Recorder > recorder_;
   asio::steady_timer duration_;
   asio::steady_timer hangUp_;

   WatchingClients clients_;
   PbrDelivery delivery_;
   MplsStreams mplsStreams_;
   StreamTimes< MplsStreams > mplsTimes_;
   Inspection inspection_;
   const RpcServices services_;
   std::unique_ptr< RpcServer > server_;
   std::unique_ptr< Metrics > metrics_;
   ServiceManager serviceManager_;
   const Lumo::Ptr< Readiness > readiness_;
   bool ending_ = false;
   bool linesEnded_ = false;
   bool callsEnded_ = false;
};

Agent::Agent( const Options & options, const StopSignals & stopSignals, int outputFd )
   : options_( options ),
     format_( formatFor( options ) ),
     loop_( *scheduler_ ),
     output_( loop_, writesLines() ? outputFd : STDERR_FILENO, [this] { outputFailed(); } ),
     root_( Lumo::makeNode< TreeWriter::Root >() ),
     managers_( root_ ),
     writer_( Lumo::makeNode< TreeWriter >(
        *scheduler_, root_, [this]( const std::string & what ) { noted( what ); } ) ),
     source_( sourceFor( options ) ),
     recorder_( recorderFor( options ) ),
     duration_( loop_.context() ),
     hangUp_( loop_.context() ),
     delivery_( { .loop = loop_,
                  .scheduler = *scheduler_,
                  .counters = managers_.pbrCounters(),
                  .clients = clients_,
                  .format = writesLines() ? format_.get() : nullptr,
                  .output = output_ },
                options.stream ),
     mplsStreams_( *scheduler_, managers_.mplsRoutes(), managers_.nexthopGroups(), clients_,
                   options.stream, Oru::steadyClock() ),
     mplsTimes_( loop_, mplsStreams_ ),
     inspection_( managers_, **scheduler_, clients_ ),
     services_( { .loop = loop_,
                  .managers = managers_,
                  .writer = *writer_,
                  .pbrFanout = delivery_.fanout(),
                  .pbrStreams = delivery_.streams(),
                  .mplsStreams = mplsStreams_,
                  .inspection = inspection_,
                  .resyncPatience = options.stream.stallTime,
                  .recorder = recorder_.get() } ),
     serviceManager_( loop_ ),
     readiness_( Lumo::makeNode< Readiness >( [this] { ready(); } ) ) {
   loop_.whenReadable( stopSignals.fd(), [this] { end(); } );
   if ( options.maxRecords ) {
      delivery_.lines()->maxRecordsAre( *options.maxRecords, [this] { end(); } );
   }
}

std::unique_ptr< Source > Agent::sourceFor( const Options & options ) {
   switch ( options.source ) {
   case SourceKind::synthetic:
      return std::make_unique< SyntheticSource >( loop_, *this, options.synthetic );
   case SourceKind::nftables:
      return std::make_unique< NftSource >( loop_, *this, options.table, options.interval );
   case SourceKind::none:
      break;
   }
   return nullptr;
}

std::unique_ptr< Recorder > Agent::recorderFor( const Options & options ) {
   if ( options.recordFile.empty() ) { return nullptr; }
   const auto ended = [this]( const std::string & why ) {
      loop_.post( [this, why] { noted( why ); } );
   };
   return std::make_unique< Recorder >( options.recordFile, ended );
}

void Agent::begin() {
   const velo::sdk_scoped_lock lock;
   startServer();
   startMetrics();
   managers_.mount();
   delivery_.begin();
   mplsStreams_.start();
   mplsTimes_.begin();
   readiness_->watch( managers_.pbrCounters() );
   if ( source_ ) { source_->start(); }
   if ( options_.duration ) {
      duration_.expires_after( *options_.duration );
      duration_.async_wait( EventLoop::locked( [this]( const std::error_code & ) { end(); } ) );
   }
}

void Agent::startServer() {
   server_ = rpcServerFor( options_.rpc, services_.all(), complain );
   if ( server_ ) { inspection_.connectionsAre( server_->connections() ); }
}

void Agent::startMetrics() {
   if ( options_.metricsAddress.empty() ) { return; }
   metrics_ = std::make_unique< Metrics >( loop_, inspection_, options_.metricsAddress );
}

void Agent::ready() {
   if ( ending_ ) { return; }
   inspection_.readyIs( true );
   if ( server_ ) { server_->servingIs( true ); }
   serviceManager_.ready();
}

void Agent::end() {
   if ( std::exchange( ending_, true ) ) { return; }
   inspection_.readyIs( false );
   serviceManager_.stopping();
   callsEnded_ = !server_;
   if ( server_ ) { endCalls(); }
   mplsTimes_.end( options_.stream.drainTime );
   delivery_.end( [this] {
      linesEnded_ = true;
      stopWhenDone();
   } );
}

void Agent::endCalls() {
   server_->servingIs( false );
   const auto ended = [this] {
      callsEnded_ = true;
      stopWhenDone();
   };
   // What the calls have left to say to the loop comes before that.
   server_->shutdown( std::chrono::system_clock::now() + options_.stream.drainTime + kShutdownGrace,
                      [this, ended] { loop_.post( ended ); } );
   hangUpWhenAllAreTold();
}

/// Clients without a call need not notice the shutdown, and would hold it up to its deadline.
void Agent::hangUpWhenAllAreTold() {
   hangUp_.expires_after( kHangUpLook );
   hangUp_.async_wait( EventLoop::locked( [this]( const std::error_code & ) {
      if ( anyStreams( clients_ ) ) { return hangUpWhenAllAreTold(); }
      server_->hangUp();
   } ) );
}

void Agent::stopWhenDone() {
   if ( linesEnded_ && callsEnded_ ) { loop_.stop(); }
}

/// For people, and of no use to those who are late: nothing is kept for a reader that stands still.
void Agent::tell( const std::string & line ) {
   if ( !output_.hasRoom() ) { return; }
   output_.line( line );
   output_.flush();
}

void Agent::outputFailed() {
   if ( writesLines() ) { end(); }
}

void Agent::run() {
   std::exception_ptr failure;
   try {
      begin();
      loop_.run();
   } catch ( ... ) {
      failure = std::current_exception();
      end();
      loop_.run();
   }
   if ( failure ) { std::rethrow_exception( failure ); }
   if ( writesLines() && output_.error() != 0 ) {
      throw std::runtime_error( std::string( "cannot write to standard output: " ) +
                                std::strerror( output_.error() ) );
   }
}

} // namespace

void runAgent( const Options & options, const StopSignals & stopSignals, int outputFd ) {
   Agent( options, stopSignals, outputFd ).run();
}

} // namespace VeloAgent
