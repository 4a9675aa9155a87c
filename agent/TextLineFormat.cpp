#include "agent/TextLineFormat.h"

#include "agent/Printable.h"

#include <fmt/format.h>

namespace VeloAgent {

namespace {

std::string nameText( std::string_view name ) { return printable( name, '!' ); }

} // namespace

std::string TextLineFormat::record( const DeliveredRecord & delivered ) const {
   std::string line = fmt::format( "{} {} {}", delivered.shortKey, nameText( delivered.policy ),
                                   nameText( delivered.className ) );
   if ( !delivered.aclRule.empty() ) { line += ' ' + nameText( delivered.aclRule ); }
   if ( delivered.deleted ) { return line + ": gone"; }
   line += delivered.counters ? fmt::format( ": {} packets, {} bytes", delivered.counters->packets,
                                             delivered.counters->bytes )
                              : ": no data";
   return delivered.encodeLongKey ? line + " (new)" : line;
}

std::string TextLineFormat::push( std::uint64_t records ) const {
   return fmt::format( "-- {} record{}", records, records == 1 ? "" : "s" );
}

std::string TextLineFormat::sourceError( std::string_view what,
                                         std::chrono::milliseconds retryIn ) const {
   return fmt::format( "!! {}; trying again in {} ms", printable( what ), retryIn.count() );
}

std::string TextLineFormat::sourceRecovered() const { return "!! the source can be read again"; }

std::string TextLineFormat::note( std::string_view what ) const {
   return "!! " + printable( what );
}

} // namespace VeloAgent
