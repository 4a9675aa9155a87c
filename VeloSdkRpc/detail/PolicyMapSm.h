#pragma once

#include "PolicyMap/PolicyMap.h"
#include "VeloSdkRpc/detail/BelowRootSm.h"
#include "VeloSdkRpc/detail/ScanningSm.h"

namespace VeloSdkRpc::detail {

/// The level of one policy map, in both machines: below the root, over the classes.
///
/// `Base` is what the level makes of its classes: a `ScanningSm` over leaves or a `ParentSm` of
/// machines. `Derived` names itself (`kName`) and has
///   bool classScanned( name, broken )       one item of the scan; false if the scan below stopped
///   void handleClassCounters0( name )       one change of `classCounters`
template< class Derived, class Root, class TopLevel, class Base >
class PolicyMapSm : public BelowRootSm< Root, TopLevel, Base > {
   using BelowRoot = BelowRootSm< Root, TopLevel, Base >;

 public:
   using PolicyMapCounters = PolicyMap::Counters::PolicyMapCounters;

   const PolicyMap::Counters::PolicyMapKey & smKey() const { return this->en()->key(); }

   void doInputScan() override {
      if ( !this->initialized() || !this->attached() ) { return; }
      LUMO_TRACE( this->traceHandle(), 9, "{} doInputScan", Derived::kName );
      doInputScan0();
   }

   /// One pass over the classes, or as much of it as the scheduler lets it.
   void doInputScan0() {
      if ( !this->sliceBegins() ) { return; }
      const Lumo::Ptr< Derived > self( &derived() );
      if ( this->inputScanState0() != InputScanState::yielded ) { itemsOfPass_ = 0; }
      auto slice = this->scanSlice( input(), [this]( const Lumo::String & name, auto & broken ) {
         return derived().classScanned( name, broken );
      } );
      itemsOfPass_ += slice.iterations;
      classCountersSize_ = input().size();
      if ( !slice.yielded && this->attached() ) {
         const std::string pass = this->passEnds( Derived::kName );
         LUMO_TRACE( this->traceHandle(), 9, "{} scan complete. Processed {} children. ", pass,
                     itemsOfPass_ );
      }
      slice.broken.rethrow();
   }

   void handleClassCounters0Reactor( const Lumo::String & name ) {
      const typename Base::Reaction reaction( derived() );
      classCountersSize_ = input().size();
      derived().handleClassCounters0( name );
   }

   void enDispatch( short attributeId, const void * key ) {
      if ( attributeId == PolicyMapCounters::kClassCounters ) {
         handleClassCounters0Reactor( *static_cast< const Lumo::String * >( key ) );
      }
   }

   // What the scan and the level below are made of.
   const auto & input() const { return this->en()->classCounters(); }
   const PolicyMap::Counters::PolicyMapKey & yieldName() const { return smKey(); }

 protected:
   using BelowRoot::BelowRoot;

   /// The size of `classCounters` as last seen, by a scan or a notification.
   std::size_t classCountersSize() const { return classCountersSize_; }

 private:
   Derived & derived() { return static_cast< Derived & >( *this ); }

   std::size_t classCountersSize_ = 0;
   std::size_t itemsOfPass_ = 0; ///< Over all slices of the pass so far.
};

} // namespace VeloSdkRpc::detail
