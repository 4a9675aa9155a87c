#include "agent/stream/PbrClientKeys.h"

namespace VeloAgent {

using VeloSdkRpc::PbrCounters;
using VeloSdkRpc::PbrCountersKey;

void PbrClientKeys::gone( std::uint64_t key, const PbrCountersKey & longKey ) {
   if ( !isTold( key ) ) {
      dirty_.deleteMember( key );
   } else {
      dirty_.memberIs( key );
      if ( keep_ == KeepLongKeys::yes ) { goneLongKeys_.memberIs( key, longKey ); }
   }
}

PbrNews PbrClientKeys::newsOf( const PbrCounters & record ) {
   return { .shortKey = record.shortKey(),
            .record = &record,
            .longKey = &record.longKey(),
            .first = told_.memberIs( record.shortKey() ).inserted };
}

PbrNews PbrClientKeys::newsOf( std::uint64_t key ) {
   if ( const auto * present = latest_[key] ) { return newsOf( present->value() ); }
   told_.deleteMember( key );
   const auto * kept = goneLongKeys_[key];
   return { .shortKey = key,
            .record = nullptr,
            .longKey = kept ? &kept->value() : nullptr,
            .first = false };
}

void PbrClientKeys::untell( std::uint64_t key, bool first, bool gone ) {
   if ( first ) { told_.deleteMember( key ); }
   if ( gone ) { told_.memberIs( key ); }
   if ( isGone( key ) && !isTold( key ) ) {
      dirty_.deleteMember( key );
      forget( key );
   } else {
      dirty_.memberIs( key );
   }
   sweptTo_ = 0;
}

std::size_t PbrClientKeys::pending() const {
   const std::size_t untold =
      walking() && latest_.size() > told_.size() ? latest_.size() - told_.size() : 0;
   return std::max( dirty_.size(), untold );
}

} // namespace VeloAgent
