#include "agent/veloctl/PbrLines.h"

#include "agent/JsonLineFormat.h"
#include "agent/JsonText.h"
#include "agent/Printable.h"
#include "agent/TextLineFormat.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <ostream>

namespace VeloCtl {

namespace {

std::unique_ptr< VeloAgent::LineFormat > formatOf( const Session & session ) {
   if ( session.json() ) { return std::make_unique< VeloAgent::JsonLineFormat >(); }
   return std::make_unique< VeloAgent::TextLineFormat >();
}

} // namespace

PbrLines::PbrLines( Session & session ) : session_( session ), format_( formatOf( session ) ) {}

void PbrLines::opened( const std::string & outcome ) {
   session_.line( session_.json()
                     ? VeloAgent::lineOf( { { "event", "opened" }, { "outcome", outcome } } )
                     : "-- opened: " + outcome );
}

void PbrLines::record( const VeloAgent::DeliveredRecord & record ) {
   session_.line( format_->record( record ) );
}

void PbrLines::push( std::uint64_t records ) { session_.line( format_->push( records ) ); }

void PbrLines::inSync() {
   session_.line( session_.json() ? R"({"event":"in_sync"})" : "-- in sync" );
}

void PbrLines::interrupted( const std::string & why, std::chrono::milliseconds retryIn ) {
   session_.line( interruptionLine( session_.format, why, retryIn ) );
   session_.streams.out.flush();
}

void PbrLines::tick() { session_.streams.out.flush(); }

std::string interruptionLine( Format format, const std::string & why,
                              std::chrono::milliseconds retryIn ) {
   if ( format == Format::json ) {
      return VeloAgent::lineOf(
         { { "event", "interrupted" }, { "what", why }, { "retry_in_ms", retryIn.count() } } );
   }
   return fmt::format( "!! {}; trying again in {} ms", VeloAgent::printable( why ),
                       retryIn.count() );
}

} // namespace VeloCtl
