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

/// A completion in progress, known by the mode that it is about. What happens inside of it may end
/// it: another completion of the same bracket, or the end of the manager. From then on it must not
/// touch the manager: the bracket, if there is one, is not the one that it was called for.
///
/// Thread     event loop only
/// Invariant  those in progress are nested, innermost first
class ResyncPass {
 public:
   explicit ResyncPass( const bool & resyncMode ) : resyncMode_( resyncMode ) {
      endAll( resyncMode );
      innermost_ = this;
   }
   ~ResyncPass() { innermost_ = around_; }
   ResyncPass( const ResyncPass & ) = delete;
   ResyncPass & operator=( const ResyncPass & ) = delete;

   bool over() const { return over_; }

   /// Ends those that are about `resyncMode`. For destructors of managers.
   static void endAll( const bool & resyncMode ) {
      for ( ResyncPass * pass = innermost_; pass; pass = pass->around_ ) {
         if ( &pass->resyncMode_ == &resyncMode ) { pass->over_ = true; }
      }
   }

 private:
   static inline ResyncPass * innermost_ = nullptr;

   const bool & resyncMode_;
   ResyncPass * const around_ = innermost_;
   bool over_ = false;
};

/// Deletes from `entries` every key that is not in `sent`, then empties `sent` and leaves the
/// resync mode. O(entries).
///
/// First it calls `delUnseen( unwanted )`, which deletes all of them at once if nobody will be
/// told, and otherwise returns false. Then it is `del( at )`, one by one, which deletes where the
/// iterator `at` stands and advances it. Whoever is told of a deletion may call the manager,
/// destroy it, or change `entries`, which the caller keeps alive. What it sets through the manager
/// enters `sent` and stays; when it completes the bracket itself, that is the end of this pass too.
/// If it throws, the pass goes on, and the first exception leaves when all is done.
template< class Sent, class Entries, class KeyFrom, class Delete, class DeleteUnseen >
void deleteWhatWasNotSent( bool & resyncMode, Sent & sent, const Entries & entries,
                           const KeyFrom & keyFrom, const Delete & del,
                           const DeleteUnseen & delUnseen ) {
   FirstException failure;
   const ResyncPass pass( resyncMode );
   const auto unwanted = [&]( const auto & key ) {
      return sent.empty() || !sent.contains( keyFrom( key ) );
   };
   if ( !delUnseen( unwanted ) ) {
      for ( auto at = entries.iterator(); at && !pass.over(); ) {
         if ( unwanted( at.key() ) ) {
            failure.guard( [&] { del( at ); } );
         } else {
            at.advance();
         }
      }
   }
   if ( !pass.over() ) {
      sent.clear();
      resyncMode = false;
   }
   failure.rethrow();
}

} // namespace VeloSdkRpc::detail
