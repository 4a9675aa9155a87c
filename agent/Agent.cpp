#include "agent/Agent.h"

#include "agent/EventLoop.h"
#include "agent/JsonLineFormat.h"
#include "agent/Managers.h"
#include "agent/Output.h"
#include "agent/Printable.h"
#include "agent/ProcessScheduler.h"
#include "agent/Readiness.h"
#include "agent/StopSignals.h"
#include "agent/StreamFrontend.h"
#include "agent/SyntheticSource.h"
#include "agent/TextLineFormat.h"
#include "agent/TreeWriter.h"
#include "agent/nftables/NftSource.h"
#include "agent/rpc/RpcServer.h"
#include "agent/rpc/RpcServices.h"

#include <asio/steady_timer.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace VeloAgent {

namespace {

std::unique_ptr< LineFormat > formatFor( const Options & options ) {
   if ( options.format == OutputFormat::text ) { return std::make_unique< TextLineFormat >(); }
   return std::make_unique< JsonLineFormat >();
}

void complain( const std::string & what ) {
   std::cerr << "velo-agent: " << printable( what ) << std::endl;
}

/// How long the calls in progress have to end, once the agent is asked to.
constexpr std::chrono::seconds kShutdownGrace{ 5 };

class Agent final : public SourceListener {
 public:
   Agent( const Options & options, const StopSignals & stopSignals, int outputFd );

   void run();

 private:
   void begin();
   void ready();
   /// The loop goes on until every call has been answered.
   void end();

   /// Null if counters come from RPC clients only.
   std::unique_ptr< Source > sourceFor( const Options & options );

   void changesFound( CounterChanges changes ) override {
      writer_->apply( std::move( changes ), [this] { source_->changesApplied(); } );
   }
   void sourceFailed( const std::string & what, std::chrono::milliseconds retryIn ) override {
      tell( format_->sourceError( what, retryIn ) );
   }
   void sourceRecovered() override { tell( format_->sourceRecovered() ); }
   void noted( const std::string & what ) override { tell( format_->note( what ) ); }
   void tell( const std::string & line ) {
      output_.line( line );
      output_.flush();
   }

   const Options & options_;
   const std::unique_ptr< LineFormat > format_;
   const ProcessScheduler scheduler_;
   EventLoop loop_;
   Output output_;

   const Lumo::Ptr< TreeWriter::Root > root_;
   Managers managers_;

   const Lumo::Ptr< StreamFrontend > frontend_;
   const Lumo::Ptr< TreeWriter > writer_;
   const std::unique_ptr< Source > source_;
   asio::steady_timer duration_;
   const RpcServices services_;
   std::unique_ptr< RpcServer > server_;
   const Lumo::Ptr< Readiness > readiness_;
   bool ending_ = false;
};

Agent::Agent( const Options & options, const StopSignals & stopSignals, int outputFd )
   : options_( options ),
     format_( formatFor( options ) ),
     loop_( *scheduler_ ),
     output_( outputFd, stopSignals.fd(), [this] { end(); } ),
     root_( Lumo::makeNode< TreeWriter::Root >() ),
     managers_( root_ ),
     frontend_( Lumo::makeNode< StreamFrontend >( *format_, output_ ) ),
     writer_( Lumo::makeNode< TreeWriter >(
        *scheduler_, root_, [this]( const std::string & what ) { noted( what ); } ) ),
     source_( sourceFor( options ) ),
     duration_( loop_.context() ),
     services_( { .loop = loop_, .managers = managers_, .writer = *writer_ } ),
     readiness_( Lumo::makeNode< Readiness >( [this] { ready(); } ) ) {
   loop_.whenReadable( stopSignals.fd(), [this] { end(); } );
   if ( options.maxRecords ) {
      frontend_->maxRecordsAre( *options.maxRecords, [this] { end(); } );
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

void Agent::begin() {
   const velo::sdk_scoped_lock lock;
   server_ = rpcServerFor( options_.rpc, services_.all(), complain );
   managers_.mount();
   managers_.pbrCounters().startWatching( frontend_ );
   readiness_->watch( managers_.pbrCounters() );
   if ( source_ ) { source_->start(); }
   if ( options_.duration ) {
      duration_.expires_after( *options_.duration );
      duration_.async_wait( EventLoop::locked( [this]( const std::error_code & ) { end(); } ) );
   }
}

void Agent::ready() {
   if ( server_ && !ending_ ) { server_->servingIs( true ); }
}

void Agent::end() {
   if ( std::exchange( ending_, true ) ) { return; }
   if ( !server_ ) { return loop_.stop(); }
   server_->servingIs( false );
   server_->shutdown( std::chrono::system_clock::now() + kShutdownGrace, [this] { loop_.stop(); } );
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
   output_.flush();
   if ( output_.error() != 0 && output_.error() != ECANCELED ) {
      throw std::runtime_error( std::string( "cannot write to standard output: " ) +
                                std::strerror( output_.error() ) );
   }
}

} // namespace

void runAgent( const Options & options, const StopSignals & stopSignals, int outputFd ) {
   Agent( options, stopSignals, outputFd ).run();
}

} // namespace VeloAgent
