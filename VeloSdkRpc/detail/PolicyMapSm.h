#pragma once

#include "PolicyMap/PolicyMap.h"
#include "VeloSdkRpc/detail/ScanningSm.h"

namespace VeloSdkRpc::detail {

/// The level of one policy map, in both machines: below the root, over the classes.
///
/// `Base` is what the level makes of its classes: a `ScanningSm` over leaves or a `ParentSm` of
/// machines. `Derived` names itself (`kName`) and has
///   bool classScanned( name, broken )       one item of the scan; false if the scan below stopped
///   void handleClassCounters0( name )       one change of `classCounters`
template< class Derived, class Root, class TopLevel, class Base >
class PolicyMapSm : public Base {
 public:
   using PolicyMapCounters = PolicyMap::Counters::PolicyMapCounters;

   const PolicyMap::Counters::PolicyMapKey & smKey() const { return this->en()->key(); }
   Root * root() const { return this->parent(); }
   Lumo::Ptr< TopLevel > topLevel() const { return root() ? root()->topLevel() : nullptr; }

   /// This level has no task of its own: the root's decides.
   bool shouldYield0() const { return root() && root()->shouldYield0(); }
   bool inTask0() const { return root() && root()->inTask0(); }

   /// The whole tree shares the root's in-reactor flag.
   Lumo::Ptr< Root > inReactorOwner() { return Lumo::Ptr< Root >( root() ); }
   void inReactorIs( bool inReactor ) override {
      if ( Root * const shared = root() ) { shared->inReactorIs( inReactor ); }
   }
   bool inReactor() const override { return root() && root()->inReactor(); }

   void doInputScan() override {
      if ( !this->initialized() || !this->attached() ) { return; }
      LUMO_TRACE( this->traceHandle(), 9, "{} doInputScan", Derived::kName );
      doInputScan0();
   }

   /// One pass over the classes, or as much of it as the scheduler lets it.
   void doInputScan0() {
      if ( !this->sliceBegins() ) { return; }
      const Lumo::Ptr< Derived > self( &derived() );
      auto slice = this->scanSlice( input(), [this]( const Lumo::String & name, auto & broken ) {
         return derived().classScanned( name, broken );
      } );
      classCountersSize_ = input().size();
      if ( !slice.yielded && this->attached() ) {
         const std::string pass = this->passEnds( Derived::kName );
         LUMO_TRACE( this->traceHandle(), 9, "{} scan complete. Processed {} children. ", pass,
                     slice.iterations );
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
   bool inputScanFlag() const { return this->attached() && root()->inputScanFlag(); }
   const PolicyMap::Counters::PolicyMapKey & yieldName() const { return smKey(); }

 protected:
   using Base::Base;

   /// The size of `classCounters` as last seen, by a scan or a notification.
   std::size_t classCountersSize() const { return classCountersSize_; }

 private:
   Derived & derived() { return static_cast< Derived & >( *this ); }

   std::size_t classCountersSize_ = 0;
};

} // namespace VeloSdkRpc::detail
