#pragma once

#include "VeloSdkRpc/SdkErrors.h"
#include "VeloSdkRpc/detail/FirstException.h"

/// The end of a resync bracket, which all configuration managers have in common:
///
///    resync_init        the set of what was sent is emptied; from here on it is kept
///    set, del ...       enter into the set, leave it
///    resync_complete    what is configured and not in the set is deleted
namespace VeloSdkRpc::detail {

inline constexpr const char * kResyncNotInitialized =
   "Resync mode was not initialized; cannot complete resync";

/// Panics unless in resync mode.
inline void requireResync( bool resyncMode ) {
   if ( !resyncMode ) { velo::panic( velo::configuration_error( kResyncNotInitialized ) ); }
}

/// Calls `del` for every key in `entries` that is not in `sent`, then empties `sent` and leaves the
/// resync mode. O(entries).
///
/// Whoever is told of a deletion may call the manager, or change `entries`. What it sets through
/// the manager enters `sent` and stays; when it completes the bracket itself, that is the end of
/// this pass too. If it throws, the pass goes on, and the first exception leaves when all is done.
template< class Sent, class Entries, class KeyFrom, class Delete >
void deleteWhatWasNotSent( bool & resyncMode, Sent & sent, const Entries & entries,
                           const KeyFrom & keyFrom, const Delete & del ) {
   FirstException failure;
   for ( auto at = entries.iterator(); at && resyncMode; at.advance() ) {
      const typename Sent::key_type key = keyFrom( at.key() );
      if ( !sent.contains( key ) ) {
         failure.guard( [&] { del( key ); } );
      }
   }
   sent.clear();
   resyncMode = false;
   failure.rethrow();
}

} // namespace VeloSdkRpc::detail
