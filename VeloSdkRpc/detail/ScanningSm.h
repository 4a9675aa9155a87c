#pragma once

#include <cstddef>
#include <string>

#include "VeloSdkRpc/detail/FirstException.h"
#include "VeloSdkRpc/detail/InputScan.h"
#include "VeloSdkRpc/detail/WatchingSm.h"

namespace VeloSdkRpc::detail {

/// A child state machine that scans one keyed collection of its entity, in slices.
///
/// A slice goes from the bookmark (or the first element) until the scheduler wants the loop back:
///
///     collection   a  b  c | d  e  f        the slice handled a b c and was told to yield:
///                            ^               the bookmark is d, a key and not an iterator,
///                            bookmark        so the collection may change until the next slice
///
/// The collection orders by key, so a pass never handles a key twice and never misses one that was
/// there throughout, even when the bookmarked element itself is gone.
///
/// An item that throws does not stop the slice; the first exception leaves at its end.
template< class Derived, class Parent, class En, class Key >
class ScanningSm : public WatchingSm< Derived, Parent, En > {
   using Base = WatchingSm< Derived, Parent, En >;

 public:
   InputScanState inputScanState0() const { return inputScanState0_; }
   const Key & inputScanBookmark0() const { return inputScanBookmark0_; }

   /// Whether there is nothing left to scan for now.
   bool inputScanComplete0() const {
      return scanIsComplete( inputScanState0_, this->initialScanDone() );
   }

 protected:
   using Base::Base;

   /// What a slice did.
   struct Slice {
      std::size_t iterations = 0;
      bool yielded = false;      ///< It stopped at the bookmark; otherwise the pass is over.
      bool childYielded = false; ///< It stopped because the scan below the bookmarked key did.
      FirstException broken;
   };

   bool sliceBegins() {
      if ( !scanIsDue( derived() ) ) { return false; }
      this->assertEn();
      return true;
   }

   /// Handles elements of `collection`, at least one, until told to yield.
   /// `handleItem( key, slice.broken )` returns false if a scan below that key stopped.
   template< class Collection, class HandleItem >
   Slice scanSlice( const Collection & collection, HandleItem && handleItem ) {
      Slice slice;
      auto at = inputScanState0_ == InputScanState::yielded
                   ? collection.iteratorFrom( inputScanBookmark0_ )
                   : collection.iterator();
      while ( at && this->attached() ) {
         const Key key = at.key();
         if ( !handleItem( key, slice.broken ) ) {
            slice.childYielded = true;
            stopAt( slice, key );
            break;
         }
         ++slice.iterations;
         const bool yield = derived().shouldYield0();
         at.advance();
         if ( yield && at ) {
            stopAt( slice, at.key() );
            break;
         }
      }
      if ( slice.yielded && this->attached() ) {
         LUMO_TRACE( this->traceHandle(), 8, "{} {} yielding after {} iterations ({} total items)",
                     derived().yieldName(), slice.childYielded ? "child" : "", slice.iterations,
                     collection.size() );
      }
      return slice;
   }

   /// Ends a pass; returns the name to trace it by.
   std::string passEnds( std::string_view name ) {
      inputScanState0_ = stateAfterPass( this->initialScanDone() );
      return passName( name, inputScanState0_ );
   }

 private:
   Derived & derived() { return static_cast< Derived & >( *this ); }

   void stopAt( Slice & slice, const Key & bookmark ) {
      slice.yielded = true;
      inputScanState0_ = InputScanState::yielded;
      inputScanBookmark0_ = bookmark;
   }

   InputScanState inputScanState0_ = InputScanState::neverScanned;
   Key inputScanBookmark0_;
};

} // namespace VeloSdkRpc::detail
