#pragma once

#include "Oru/Oru.h"
#include "PolicyMap/PolicyMap.h"
#include "VeloSdkRpc/detail/ParentSm.h"

namespace VeloSdkRpc::detail {

/// The root of the tree of child machines: watches the policy maps of the input and drives the scan
/// of everything below, in a task of its own when the machine is asynchronous.
///
/// `Derived` names itself (`kName`) and its scan task (`kTaskName`).
template< class Derived, class TopLevel, class Child >
class RootSm : public ParentSm< Derived, TopLevel, PolicyMap::Counters::PolicyMapTypeCounters,
                                PolicyMap::Counters::PolicyMapKey, Child > {
   using Base = ParentSm< Derived, TopLevel, PolicyMap::Counters::PolicyMapTypeCounters,
                          PolicyMap::Counters::PolicyMapKey, Child >;

 public:
   using PolicyMapKey = PolicyMap::Counters::PolicyMapKey;
   using PolicyMapCountersPtr = Lumo::Ptr< const PolicyMap::Counters::PolicyMapCounters >;

   static constexpr const char * kChildMap =
      "childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs";

   Lumo::Ptr< TopLevel > topLevel() const { return Lumo::Ptr< TopLevel >( this->parent() ); }

   void hasNotificationActiveIs( bool active ) {
      if ( active == this->hasNotificationActive() ) { return; }
      Base::hasNotificationActiveIs( active );
      if ( task0_ ) { Lumo::subscriptionIs( task0_->publisher(), onRun_, active ); }
   }

   /// @name The scan task; there is none in synchronous mode and after the scan.
   /// @{
   const Lumo::Ptr< Oru::Task > & task0() const { return task0_; }

   void doInitializeTask() override {
      if ( this->synchronous() ) { return; }
      task0Is( this->parent()->scheduler(), this->parent()->priority(), Derived::kTaskName );
   }

   /// Keeps a task with these properties; otherwise makes one and runs the first slice at once.
   void task0Is( const Lumo::Ptr< Oru::TaskScheduler > & scheduler, Oru::TaskPriority priority,
                 const Lumo::String & name ) {
      if ( task0_ && task0_->taskScheduler() == scheduler && task0_->taskPriority() == priority &&
           task0_->taskName() == name ) {
         return;
      }
      const auto made = Lumo::makeNode< Oru::Task >( scheduler, priority, name );
      task0Del(); // Only now: the arguments may be its own.
      task0_ = made;
      Lumo::subscriptionIs( task0_->publisher(), onRun_, true );
      doInputScan0();
   }

   /// Legal from inside the task's own run.
   void task0Del() {
      onRun_.unlink();
      task0_ = nullptr;
   }

   void task0Dispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void *,
                       const void * ) {
      if ( attributeId == Oru::Task::kRun ) { doInputScan0(); }
   }

   bool shouldYield0() const { return task0_ && !this->inReactor() && task0_->taskShouldYield(); }
   bool inTask0() const { return task0_ && task0_->taskCurrentlyRunning(); }
   /// @}

   void doInputScan() override {
      if ( !this->initialized() || !this->attached() ) { return; }
      LUMO_TRACE( this->traceHandle(), 9, "{} doInputScan", Derived::kName );
      if ( this->synchronous() || !task0_ || !task0_->taskScheduler() ) {
         doInputScan0();
      } else {
         task0_->scheduleTask();
      }
   }

   /// One slice of the scan; in synchronous mode all of it.
   void doInputScan0() {
      if ( !this->sliceBegins() ) { return; }
      const Lumo::Ptr< Derived > self( static_cast< Derived * >( this ) );
      const Lumo::Ptr< TopLevel > top = topLevel();
      auto slice = this->scanSlice( input(), [this]( const PolicyMapKey & key, auto & broken ) {
         return this->childScanned( key, broken );
      } );
      if ( slice.yielded ) {
         yieldReported( slice.iterations );
      } else if ( this->attached() ) {
         slice.broken.guard( [this] { passFinished(); } );
      }
      slice.broken.rethrow();
   }

   /// Makes the child machine of `key` agree with the input.
   void handlePolicyMapCounters0( const PolicyMapKey & key ) { this->childMaintained( key ); }
   void handlePolicyMapCounters0Reactor( const PolicyMapKey & key ) {
      const typename Base::Reaction reaction( static_cast< Derived & >( *this ) );
      handlePolicyMapCounters0( key );
   }

   void enDispatch( short attributeId, const void * key ) {
      using Input = PolicyMap::Counters::PolicyMapTypeCounters;
      if ( attributeId == Input::kPolicyMapCounters ) {
         handlePolicyMapCounters0Reactor( *static_cast< const PolicyMapKey * >( key ) );
      }
   }

   /// One leaf, from a machine below: on to the rules. `memo` is what a machine hands on that keeps
   /// something for them from one event of its leaf to the next.
   void onChildEvent0( const PolicyMapKey & policyKey, const Lumo::String & name,
                       const auto & counters, auto *... memo ) {
      if ( this->attached() ) {
         this->parent()->eventToInput( policyKey, name, counters, memo... );
      }
   }

   /// @name The child machines, one per policy map
   /// @{
   void childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstIs(
      const PolicyMapCountersPtr & en, Derived * parent ) {
      if ( !en ) { Quon::throwMutatorArgNullPointerException( kChildMap, "en" ); }
      LUMO_ASSERT( parent == this );
      this->childIs( en->key(), en );
   }
   void childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstDel(
      const PolicyMapKey & key ) {
      this->childDel( key );
   }
   void childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstDelAll() {
      this->childDelAll();
   }
   Lumo::Ptr< Child > childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst(
      const PolicyMapKey & key ) const {
      return this->child( key );
   }
   /// @}

   // What the levels below this one are made of.
   const auto & input() const { return this->en()->policyMapCounters(); }
   bool inputScanFlag() const { return this->parent()->inputScan(); }
   const char * yieldName() const { return ""; }

 protected:
   using Base::Base;

 private:
   void yieldReported( std::size_t iterations ) {
      if ( !task0_ ) { return; }
      task0_->taskWorkCountInc( iterations );
      task0_->taskWorkPendingIs( input().size() );
      task0_->scheduleTask();
   }

   void passFinished() {
      const std::string pass = this->passEnds( Derived::kName );
      if ( this->initialScanDone() ) { task0Del(); }
      if ( const auto state = this->parent()->inputSmScanState() ) { state->inputScanIs( true ); }
      if ( this->attached() ) {
         LUMO_TRACE( this->traceHandle(), 9, "{} scan, and parent scan, complete.", pass );
      }
   }

   Lumo::Ptr< Oru::Task > task0_;
   Lumo::MemberSubscriber< RootSm, &RootSm::task0Dispatch > onRun_{ this };
};

} // namespace VeloSdkRpc::detail
