#pragma once

#include <map>
#include <optional>
#include <utility>

#include "VeloSdkRpc/detail/MiBacklogProgress.h"

namespace VeloSdkRpc::test {

/// A backlog and its draining run, step by step as one would explain them and with no thought of
/// cost: what the real one must agree with.
///
/// `Collection` is the real one; only its order is taken from it.
template< class Collection >
class NaiveBacklog {
 public:
   using Key = typename Collection::Key;
   using Value = typename Collection::Value;
   struct InOrder {
      bool operator()( const Key & a, const Key & b ) const { return Collection::isBefore( a, b ); }
   };
   using Entries = std::map< Key, Value, InOrder >;
   using Progress = QuonLumo::MiBacklogProgress;

   void file( const Key & key, const Value & value ) {
      pending.insert_or_assign( key, value );
      arrived_ = true;
   }
   void del( const Key & key ) { pending.erase( key ); }

   /// One run. What `action( key, value )` throws passes through, with everything that was not
   /// handled back among the pending entries; `progress` tells what the run did in either case.
   template< class ShouldYield, class Action, class Outdated >
   void drain( ShouldYield && shouldYield, Action && action, Outdated && outdated ) {
      progress = Progress();
      // Everything is taken; what is filed from here on waits.
      Entries taken = std::exchange( pending, Entries() );
      const std::size_t count = taken.size();
      arrived_ = false;
      bool yielded = false;
      bool again = !taken.empty();
      while ( again ) {
         // A round: from the bookmark, or from the first entry, to the end.
         again = false;
         const bool fromBookmark = bookmark.has_value();
         const auto begin = fromBookmark ? taken.lower_bound( *bookmark ) : taken.begin();
         auto at = begin;
         for ( ; at != taken.end(); ++at ) {
            if ( progress.processedCount > 0 && shouldYield() ) {
               yielded = true;
               break;
            }
            try {
               action( at->first, at->second );
            } catch ( ... ) {
               if ( outdated() ) { // Nothing that was taken is worth keeping.
                  forgotten += count - progress.processedCount;
                  complete( Entries(), false );
                  throw;
               }
               taken.erase( begin, at );
               // The next run begins behind it.
               bookmark.reset();
               if ( ++at != taken.end() ) { bookmark = at->first; }
               complete( std::move( taken ), false );
               throw;
            }
            ++progress.processedCount;
            if ( outdated() ) {
               forgotten += count - progress.processedCount;
               return complete( Entries(), false );
            }
         }
         if ( yielded ) {
            bookmark = at->first;
            taken.erase( begin, at );
         } else {
            ++progress.passCount;
            taken.erase( begin, taken.end() );
            bookmark.reset();
            // Those before the bookmark are still to come.
            again = fromBookmark && !taken.empty();
         }
      }
      complete( std::move( taken ), yielded );
   }

   Entries pending;
   std::optional< Key > bookmark;
   Progress progress;
   std::size_t forgotten = 0; ///< Taken, and outdated before their turn.
   std::size_t overtaken = 0; ///< Left over, and replaced by what had arrived.

 private:
   void complete( Entries && left, bool yielded ) {
      progress.yielded = yielded;
      progress.remainingCount = static_cast< std::uint32_t >( left.size() );
      progress.arrivedCount = static_cast< std::uint32_t >( pending.size() );
      if ( left.empty() && !arrived_ ) { ++progress.passCount; }
      pending.merge( left ); // What arrived wins.
      overtaken += left.size();
      progress.pendingCount = static_cast< std::uint32_t >( pending.size() );
   }

   bool arrived_ = false; ///< Whether anything was filed since the run began.
};

} // namespace VeloSdkRpc::test
