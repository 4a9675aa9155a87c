#include "agent/nftables/NftSource.h"

#include <fmt/format.h>
#include <memory>

namespace VeloAgent {

namespace {

/// What went wrong at start-up, and what would be right.
std::runtime_error startUpError( const NftNoSuchTable & missing, const NftTableName & name ) {
   return std::runtime_error(
      fmt::format( "{}: {}", missing.what(),
                   missing.others().empty()
                      ? fmt::format( "there is none of family {} (nft add table {} {})",
                                     name.family, name.family, name.name )
                      : fmt::format( "there is {}", fmt::join( missing.others(), ", " ) ) ) );
}

std::runtime_error startUpError( const NftPermissionError & refused, const NftTableName & name ) {
   return std::runtime_error( fmt::format(
      "no permission to read table {}: run velo-agent as root or with CAP_NET_ADMIN ({})",
      name.text(), refused.what() ) );
}

std::runtime_error startUpError( const std::exception & failure, const NftTableName & name ) {
   return std::runtime_error(
      fmt::format( "cannot read table {}: {}; \"nft list table {} {}\" would have to work here",
                   name.text(), failure.what(), name.family, name.name ) );
}

} // namespace

NftSource::NftSource( EventLoop & loop, SourceListener & listener, NftTableName table,
                      std::chrono::milliseconds interval )
   : loop_( loop ), listener_( listener ), name_( std::move( table ) ), interval_( interval ) {}

void NftSource::start() try {
   const auto table = std::make_shared< NftTable >( name_ );
   NftPoller poller( [table] { return table->read(); }, interval_ );
   NftFinding first = poller.firstPoll();
   reader_.emplace( std::move( poller ), [this]( NftFinding finding ) {
      loop_.post( [this, found = std::move( finding )]() mutable { tell( std::move( found ) ); } );
   } );
   reader_->start( std::move( first ) );
} catch ( const NftNoSuchTable & missing ) {
   throw startUpError( missing, name_ );
} catch ( const NftPermissionError & refused ) {
   throw startUpError( refused, name_ );
} catch ( const std::exception & failure ) { throw startUpError( failure, name_ ); }

void NftSource::changesApplied() { reader_->changesApplied(); }

void NftSource::tell( NftFinding finding ) {
   if ( finding.failure ) { listener_.sourceFailed( *finding.failure, finding.wait ); }
   if ( finding.recovered ) { listener_.sourceRecovered(); }
   for ( const std::string & note : finding.notes ) { listener_.noted( note ); }
   if ( !finding.changes.empty() ) { listener_.changesFound( std::move( finding.changes ) ); }
}

} // namespace VeloAgent
