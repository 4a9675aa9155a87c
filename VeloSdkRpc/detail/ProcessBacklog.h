#pragma once

#include <cstdint>
#include <utility>

#include "Quon/Quon.h"
#include "VeloSdkRpc/detail/MiBacklogProgress.h"

namespace QuonLumo::Impl {

/// One draining run over a backlog that goes on being written to.
///
/// The run takes everything that is pending (W) and leaves an empty backlog (B) for what arrives
/// meanwhile. It starts at the bookmark that the last run left, wraps round to the entries before
/// it, and stops at a bookmark of its own when `shouldYield` says so:
///
///     W   | a  b  c  d  e  f  g |        bookmark d: first d e f g, then a b c
///                    ^                   told to yield before f: W keeps a b c f g,
///                    bookmark            the bookmark becomes f
///
/// In the end W is merged back into B; what arrived wins over what was left. Both are ordered by
/// key, so a bookmark is a key and need not be present, and the merge costs the smaller side: a run
/// costs what it processed plus what arrived, whatever else is pending.
///
/// At least one entry is processed, then `shouldYield()` is asked before each further one. When
/// `action( key, entry )` throws, the entry in hand and all that were not handed over are back in
/// the backlog and the exception goes on. The bookmark then stands behind the entry in hand, so
/// that an entry that always throws comes last in the next run and keeps nobody waiting.
///
/// When `outdated()` is true after an action, what was filed meanwhile has taken the place of all
/// that was taken: the rest of W is forgotten, the entry in hand too if it threw, and the run ends.
template< class Backlog >
class BacklogRun {
 public:
   using Key = typename Backlog::Key;

   BacklogRun( Backlog & backlog, Quon::Optional< Key > & bookmark )
      : backlog_( backlog ),
        bookmark_( bookmark ),
        taken_( backlog.moveOut() ),
        emptied_( backlog.version() ) {}

   template< class ShouldYield, class Action, class Outdated >
   void process( ShouldYield && shouldYield, Action && action, Outdated && outdated ) {
      if ( taken_.empty() ) { return; }
      if ( bookmark_ ) {
         const Key start = *bookmark_;
         if ( !pass( &start, shouldYield, action, outdated ) ) { return; }
         taken_.deleteFrom( start );
         bookmark_.reset();
      }
      if ( !taken_.empty() && pass( nullptr, shouldYield, action, outdated ) ) {
         taken_.memberDelAll();
      }
   }

   /// Puts back what was not processed and completes the record of the run.
   const MiBacklogProgress & finish() {
      const bool nothingArrived = backlog_.version() == emptied_;
      if ( taken_.empty() && nothingArrived ) { ++progress_.passCount; }
      progress_.remainingCount = count( taken_ );
      progress_.arrivedCount = count( backlog_ );
      backlog_.mergeBack( std::move( taken_ ) );
      progress_.pendingCount = count( backlog_ );
      return progress_;
   }

 private:
   static std::uint32_t count( const Backlog & b ) {
      return static_cast< std::uint32_t >( b.size() );
   }

   /// Goes from `start` (null: the first entry) to the end of W; false if it had to stop.
   template< class ShouldYield, class Action, class Outdated >
   bool pass( const Key * start, ShouldYield && shouldYield, Action && action,
              Outdated && outdated ) {
      auto at = start ? taken_.checkedIteratorFrom( *start ) : taken_.checkedIterator();
      for ( ; at; at.advance() ) {
         if ( progress_.processedCount != 0 && shouldYield() ) {
            progress_.yielded = true;
            processedDel( start, at.key() );
            return false;
         }
         try {
            action( at.key(), at.value() );
         } catch ( ... ) {
            if ( outdated() ) {
               taken_.memberDelAll();
            } else {
               stopBehind( start, at );
            }
            throw;
         }
         ++progress_.processedCount;
         if ( outdated() ) {
            taken_.memberDelAll();
            return false;
         }
      }
      ++progress_.passCount;
      return true;
   }

   /// Forgets what was processed since `start` and bookmarks `next`.
   void processedDel( const Key * start, const Key & next ) {
      const Key n = next;
      if ( start ) {
         taken_.deleteBetween( *start, n );
      } else {
         taken_.deleteUpTo( n );
      }
      bookmark_ = n;
   }

   /// Forgets what was processed since `start`, keeps the entry at `at` and bookmarks the next one.
   void stopBehind( const Key * start, typename Backlog::CheckedIterator & at ) {
      const Key failed = at.key();
      at.advance();
      const Quon::Optional< Key > next = at ? Quon::Optional< Key >( at.key() ) : std::nullopt;
      processedDel( start, failed );
      bookmark_ = next;
   }

   Backlog & backlog_;
   Quon::Optional< Key > & bookmark_;
   Backlog taken_;
   const std::uint64_t emptied_; ///< The version of the backlog without what is taken.
   MiBacklogProgress progress_;
};

/// One whole run; see `BacklogRun`. `onFailure( progress )` is called on the way out of an action
/// that threw, with everything back in its place.
template< class Backlog, class ShouldYield, class Action, class Outdated, class OnFailure >
MiBacklogProgress _processBacklog( Backlog & backlog,
                                   Quon::Optional< typename Backlog::Key > & bookmark,
                                   ShouldYield && shouldYield, Action && action,
                                   Outdated && outdated, OnFailure && onFailure ) {
   BacklogRun< Backlog > run( backlog, bookmark );
   try {
      run.process( shouldYield, action, outdated );
   } catch ( ... ) {
      onFailure( run.finish() );
      throw;
   }
   return run.finish();
}

/// The same for entries that nothing makes outdated.
template< class Backlog, class ShouldYield, class Action >
MiBacklogProgress _processBacklog( Backlog & backlog,
                                   Quon::Optional< typename Backlog::Key > & bookmark,
                                   ShouldYield && shouldYield, Action && action ) {
   return _processBacklog(
      backlog, bookmark, shouldYield, action, [] { return false; },
      []( const MiBacklogProgress & ) {} );
}

} // namespace QuonLumo::Impl
