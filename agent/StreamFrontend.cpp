#include "agent/StreamFrontend.h"

#include <utility>

namespace VeloAgent {

void StreamFrontend::maxRecordsAre( std::uint64_t count, std::function< void() > full ) {
   mayFollow_ = count;
   full_ = std::move( full );
}

bool StreamFrontend::isNews( const VeloSdkRpc::PbrCounters & record ) {
   if ( record.deletedKey() ) { return told_.erase( record.shortKey() ) == 0; }
   return told_.insert( record.shortKey() ).second;
}

void StreamFrontend::appendItem( const VeloSdkRpc::PbrCounters & record,
                                 VeloSdkRpc::PbrCountersEncodingFlags flags ) {
   if ( mayFollow_ == 0 ) { return; }
   DeliveredRecord delivered = { .shortKey = record.shortKey(),
                                 .encodeLongKey = flags.encodeLongKey(),
                                 .deleteKey = flags.deleteKey(),
                                 .policy = record.longKey().policyKey().name(),
                                 .className = record.longKey().name(),
                                 .aclRule = record.longKey().aclRule(),
                                 .longKeyIsNews = isNews( record ),
                                 .counters = {},
                                 .deleted = record.deletedKey() };
   if ( record.data() ) {
      const auto & counters = record.data()->countData();
      delivered.counters = { .packets = counters.packets(), .bytes = counters.bytes() };
   }
   output_.line( format_.record( delivered ) );
   ++sincePush_;
   if ( --mayFollow_ == 0 ) { std::exchange( full_, {} )(); }
}

void StreamFrontend::push() {
   output_.line( format_.push( std::exchange( sincePush_, 0 ) ) );
   output_.flush();
}

} // namespace VeloAgent
