#pragma once

#include <utility>

#include "Ivx/Ivx.h"
#include "Oru/Oru.h"
#include "PolicyMap/PolicyMap.h"
#include "Quon/Quon.h"
#include "VeloSdkRpc/detail/FirstException.h"

namespace VeloSdkRpc::detail {

/// What the generated state machines have in common: the life of the machine as a whole.
///
///   constructor -> handleInitialized     records of state, the tree of child machines
///      first pass                        only builds child machines; events do not count
///      handleInitialScanDone             events count from here on
///      second pass                       feeds every leaf to the rules
///      output handlers                   declare the outputs ready
///
/// `Derived` is the generated class; `Root`, `ScanState` and `Output` are its companions. It has
///   kName                                   its name
///   void assertArguments()                  stops the process on a null output argument
///   void outputsBegin()                     between the argument checks and the first pass
///   void tasksBegin()                       for an asynchronous machine: makes its own tasks
///   void handleOutputs()                    calls its output-ready handlers in output order
///
/// Owner      whoever made it; an event in progress holds it until it is over
/// Thread     event loop only
/// Start      Derived calls `handleInitialized` last in its constructor: nothing virtual leaves
///            this base
/// End        Derived calls `reactionsEnd` first in its destructor and then lets go of everything,
///            in its own order
template< class Derived, class Root, class ScanState, class Output >
class TopLevelSm : public Quon::PublishingEntity {
 public:
   using PolicyMapTypeCounters = PolicyMap::Counters::PolicyMapTypeCounters;

   static constexpr bool defaultSynchronous() { return true; }

   /// Enters or leaves the zombie state, in which no reaction runs.
   virtual void quonDoZombieReactors( bool zombie ) { nodeFlagSet( Flag::zombie, zombie ); }

   const Lumo::Ptr< const PolicyMapTypeCounters > & root() const { return root_; }

   /// @name Records of state
   /// @{
   const Lumo::Ptr< ScanState > & inputSmScanState() const { return inputSmScanState_; }
   void inputSmScanStateIs( const Lumo::Ptr< ScanState > & state ) {
      const Lumo::Ptr< ScanState > now = state; // It may be our own.
      inputSmScanStateDel();
      inputSmScanState_ = now;
      if ( now ) { Lumo::subscriptionIs( now->publisher(), onScanState_, true ); }
   }
   void inputSmScanStateDel() {
      onScanState_.unlink();
      inputSmScanState_ = nullptr;
   }
   /// Whether a pass has ended and nothing was made of that yet; false without a record.
   bool inputScan() const { return inputSmScanState_ && inputSmScanState_->inputScan(); }

   const Lumo::Ptr< Output > & outputState() const { return outputState_; }
   void outputStateIs() { outputState_ = Lumo::makeNode< Output >(); }
   void outputStateDel() { outputState_ = nullptr; }
   /// @}

   /// @name How it runs: a copy of the control that it was made with
   /// @{
   const Ivx::SmControl & ilexControl() const { return ilexControl_; }
   bool synchronous() const { return synchronous_; }
   const Lumo::Ptr< Oru::TaskScheduler > & scheduler() const { return ilexControl_.scheduler(); }
   void schedulerIs( const Lumo::Ptr< Oru::TaskScheduler > & scheduler ) {
      ilexControl_.schedulerIs( scheduler );
   }
   Oru::TaskPriority priority() const { return ilexControl_.priority(); }
   void priorityIs( Oru::TaskPriority priority ) { ilexControl_.priorityIs( priority ); }
   Oru::TaskPriority taskPriority() const { return priority(); }
   /// Names the trace handle; the tasks have names of their own.
   const Lumo::String & taskName() const { return ilexControl_.traceHandleName(); }

   /// Whether it is in being: set up and not torn down.
   bool attached() const { return static_cast< bool >( qtHandle_ ); }

   /// The handle that it and all its machines trace through. Only while attached.
   const Zaptrace::TraceHandle & traceHandle() const { return *qtHandle_; }
   const Lumo::Ptr< Zaptrace::TraceHandle > & qtHandle() const { return qtHandle_; }
   /// Null: the process-wide default handle.
   void qtHandleIs( Zaptrace::TraceHandle * handle ) {
      qtHandle_ =
         handle ? Lumo::Ptr< Zaptrace::TraceHandle >( handle ) : Ivx::SmControl().traceHandle();
   }
   /// @}

   bool initialized() const { return initialized_; }
   bool initialScanDone() const { return initialScanDone_; }

   /// Whether every output is complete.
   bool ready() const { return outputState_ && outputState_->ready(); }
   /// Whether it is ready and nothing is left to scan.
   bool idle() const {
      return ready() && ( synchronous_ || ( inputSmScanState_ && inputSmScanState_->idle() ) );
   }

   bool hasNotificationActive() const { return nodeFlag( Flag::hasNotificationActive ); }
   /// Whether changes of the input are heard.
   void hasNotificationActiveIs( bool active ) {
      if ( active == hasNotificationActive() ) { return; }
      nodeFlagSet( Flag::hasNotificationActive, active );
      if ( inputSmScanState_ ) {
         Lumo::subscriptionIs( inputSmScanState_->publisher(), onScanState_, active );
      }
      if ( rootSm_ ) { rootSm_->hasNotificationActiveIs( active ); }
   }

   /// Withdraws everything that was derived from the current input.
   void doDeleteAll() {
      const Lumo::Ptr< Derived > self( &derived() ); // A subscriber may drop the machine.
      const Lumo::Ptr< Root > root = rootSm_;
      if ( root ) { root->doDeleteAll(); }
   }

   /// Sets the machine up, once.
   void handleInitialized() {
      if ( initialized_ ) { return; }
      qtHandle_ = ilexControl_.traceHandle();
      LUMO_TRACE( traceHandle(), 8, "handleInitialized" );
      synchronous_ = ilexControl_.synchronous( synchronous_ );
      inputSmScanStateIs( Lumo::makeNode< ScanState >() );
      outputStateIs();
      if ( !synchronous_ ) {
         if ( !scheduler() ) { schedulerIs( Oru::TaskSchedulerRoot::findOrCreateScheduler() ); }
         derived().tasksBegin();
      }
      LUMO_ASSERT( root() && "Pointer SM args cannot be null unless they are marked Optional" );
      derived().assertArguments();
      derived().outputsBegin();
      LUMO_TRACE( traceHandle(), 9, "create local SMs" );
      LUMO_TRACE( traceHandle(), 9, "create non-public arg SMs" );
      rootSmIs( root_, &derived() );
      LUMO_TRACE( traceHandle(), 9, "initialized" );
      initialized_ = true;
      derived().handleOutputs();
   }

   /// Ends the first pass and starts the second, once.
   void handleInitialScanDone() {
      if ( initialScanDone_ ) { return; }
      if ( !inputScan() ) {
         LUMO_TRACE( traceHandle(), 9, " input scan is false" );
         return;
      }
      if ( !rootSm_ ) {
         LUMO_TRACE( traceHandle(), 9, "Initial scan yielding for child SM {}.", Derived::kName );
         return;
      }
      LUMO_TRACE( traceHandle(), 9,
                  "Initial scan done for child SMs. Now scanning with events triggered." );
      const Lumo::Ptr< Derived > self( &derived() );
      const Lumo::Ptr< ScanState > state = inputSmScanState_;
      const Lumo::Ptr< Root > root = rootSm_;
      initialScanDone_ = true;
      FirstException broken;
      broken.guard( [&] { state->inputScanIs( false ); } );
      broken.guard( [&] { root->doInputScan(); } );
      broken.guard( [&] { state->idleIs( true ); } );
      if ( initialized_ ) {
         broken.guard( [&] { derived().handleOutputs(); } );
      }
      broken.rethrow();
   }

 protected:
   TopLevelSm( const Lumo::Ptr< const PolicyMapTypeCounters > & root,
               const Ivx::SmControl & control )
      : root_( root ), ilexControl_( control ) {}

   const Lumo::Ptr< Root > & rootSm() const { return rootSm_; }

   /// Makes the root machine, which starts the first pass, and makes it listen. It is in its place
   /// only then: a pass that ends meanwhile waits for that.
   void rootSmIs( const Lumo::Ptr< const PolicyMapTypeCounters > & en, Derived * parent ) {
      const Lumo::Ptr< const PolicyMapTypeCounters > watched = en; // It may be the old machine's.
      rootSmDel();
      const auto made = Lumo::makeNode< Root >( watched, parent );
      made->handleInitialized();
      made->hasNotificationActiveIs( true );
      rootSm_ = made;
   }
   void rootSmDel() {
      const Lumo::Ptr< Root > gone = std::exchange( rootSm_, nullptr );
      if ( gone ) { detach( *gone ); }
   }

   /// Destruction begins: nothing reacts any more, though everything is still there.
   void reactionsEnd() {
      hasNotificationActiveIs( false );
      onScanState_.unlink();
      derived().quonDoZombieReactors( true );
      if ( rootSm_ ) { detach( *rootSm_ ); }
   }
   void qtHandleDel() { qtHandle_ = nullptr; }

   /// How the handlers see the flag of their output: `&Output::xReady` and `&Output::xReadyIs`.
   using IsReady = bool ( Output::* )() const;
   using ReadyIs = void ( Output::* )( bool );

   /// One output that needs no reconciliation becomes ready: the shape of its handler.
   /// `output` is the name of the output.
   void outputReadyWhenScanned( const char * output, IsReady isReady, ReadyIs readyIs ) {
      if ( outputIsDue( output, isReady ) ) { outputReadyIs( readyIs ); }
   }

   /// Whether an output is to become ready now: it is not yet, and the scans are complete as far as
   /// it is concerned. Starts the second pass when that is due; the handlers are called again when
   /// it is done.
   bool outputIsDue( const char * output, IsReady isReady ) {
      if ( !outputState_ ) { return false; }
      LUMO_TRACE( traceHandle(), 9, "{}", output );
      if ( ( *outputState_.*isReady )() ) {
         LUMO_TRACE( traceHandle(), 9, " already ready, not reconciling." );
         return false;
      }
      if ( !inputScan() ) { return false; }
      if ( !initialScanDone_ ) {
         handleInitialScanDone();
         return false;
      }
      LUMO_TRACE( traceHandle(), 9, "Input scans for {} complete", output );
      return true;
   }

   void outputReadyIs( ReadyIs readyIs ) {
      if ( outputState_ ) { ( *outputState_.*readyIs )( true ); }
   }

 private:
   Derived & derived() { return static_cast< Derived & >( *this ); }

   static void detach( Root & root ) {
      root.hasNotificationActiveIs( false );
      root.quonDoZombieReactors( true );
      root.parentIs( nullptr );
   }

   void inputSmScanStateDispatch( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                                  const void *, const void * ) {
      if ( attributeId != ScanState::kInputScan ) { return; }
      const Lumo::Ptr< Derived > self( &derived() );
      derived().handleOutputs();
   }

   const Lumo::Ptr< const PolicyMapTypeCounters > root_;
   Lumo::Ptr< ScanState > inputSmScanState_;
   Lumo::MemberSubscriber< TopLevelSm, &TopLevelSm::inputSmScanStateDispatch > onScanState_{ this };
   Lumo::Ptr< Output > outputState_;
   Lumo::Ptr< Root > rootSm_;
   Ivx::SmControl ilexControl_;
   Lumo::Ptr< Zaptrace::TraceHandle > qtHandle_;
   bool synchronous_ = defaultSynchronous();
   bool initialScanDone_ = false;
   bool initialized_ = false;
};

} // namespace VeloSdkRpc::detail
