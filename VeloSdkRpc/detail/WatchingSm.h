#pragma once

#include "Ivx/Ivx.h"
#include "Quon/Quon.h"

namespace VeloSdkRpc::detail {

/// A child state machine that watches one entity of the input.
///
/// `Derived` is the generated class; it has `void enDispatch( short attributeId, const void * key
/// )` for the changes of the entity. `Parent` is the machine above: the top-level machine for the
/// root, else the child machine of the level above.
///
/// Owner      the machine above; whoever handles an event of this machine holds it meanwhile
/// Thread     event loop only
/// Invariant  `parent` is null once the machine above has let go of this one; an event that is in
///            progress then ends quietly
template< class Derived, class Parent, class En >
class WatchingSm : public Ivx::Gen::InputStateMachine, private Lumo::Subscriber {
 public:
   using EnPtr = Lumo::Ptr< const En >;

   /// Not owning.
   Parent * parent() const { return parent_; }
   void parentIs( Parent * parent ) { parent_ = parent; }

   /// Whether the machines above, up to the top-level one, still hold on to this one.
   bool attached() const { return parent_ && parent_->attached(); }

   /// The watched entity.
   const EnPtr & en() const { return en_; }

   bool initialScanDone() const override { return parent_ && parent_->initialScanDone(); }
   bool synchronous() const override { return !parent_ || parent_->synchronous(); }
   void quonDoZombieReactors( bool zombie ) override {
      InputStateMachine::quonDoZombieReactors( zombie );
   }

   /// The handle of the top-level machine. Only while attached.
   const Zaptrace::TraceHandle & traceHandle() const { return parent_->traceHandle(); }

 protected:
   WatchingSm( const EnPtr & en, Parent * parent )
      : Lumo::Subscriber( &dispatch ), parent_( parent ), en_( en ) {}

   /// Starts or stops hearing the entity; false if nothing changes.
   bool listenIs( bool active ) {
      if ( active == hasNotificationActive() ) { return false; }
      InputStateMachine::hasNotificationActiveIs( active );
      if ( en_ ) { Lumo::subscriptionIs( en_->publisher(), *this, active ); }
      return true;
   }

   /// Without an entity there is nothing to scan and nothing to tell.
   void assertEn() const {
      LUMO_ASSERT( en() &&
                   "Sm args can only be null if marked as Optional in the SM type declaration" );
   }

   /// For the length of a reaction a scan inside it does not yield. The machine that keeps the flag
   /// for that stays: `inReactorOwner` names it, in a `Lumo::Ptr` where it is another one.
   class InReactor {
    public:
      explicit InReactor( Derived & machine )
         : flag_( machine.inReactorOwner() ), outer_( flag_->inReactor() ) {
         flag_->inReactorIs( true );
      }
      ~InReactor() { flag_->inReactorIs( outer_ ); }
      InReactor( const InReactor & ) = delete;
      InReactor & operator=( const InReactor & ) = delete;

    private:
      const decltype( std::declval< Derived & >().inReactorOwner() ) flag_;
      const bool outer_;
   };

   /// The same, and this machine and the top-level one stay too, whatever the reaction does to
   /// their owners.
   class Reaction {
    public:
      explicit Reaction( Derived & machine )
         : machine_( &machine ), top_( machine.topLevel() ), inReactor_( machine ) {}

    private:
      const Lumo::Ptr< Derived > machine_;
      const decltype( std::declval< Derived & >().topLevel() ) top_;
      const InReactor inReactor_;
   };

   Derived * inReactorOwner() { return static_cast< Derived * >( this ); }

 private:
   /// The slot is a base of the machine: it needs no pointer to find it.
   static void dispatch( Lumo::Publisher *, Lumo::Subscriber * slot, short attributeId,
                         const void * key, const void * ) {
      auto & machine = static_cast< Derived & >( *static_cast< WatchingSm * >( slot ) );
      if ( !machine.isZombie() && machine.attached() ) { machine.enDispatch( attributeId, key ); }
   }

   Parent * parent_;
   const EnPtr en_;
};

} // namespace VeloSdkRpc::detail
