#pragma once

#include "Lumo/Export.h"
#include "Quon/Entity.h"

namespace Ivx::Gen {

/// Base of the generated child state machines: one per watched entity, in a tree that mirrors the
/// input tree.
///
/// Owner      the child map of the machine above it
/// Thread     event loop only
/// Start      whoever makes a machine puts it in its place, then calls `handleInitialized`: no
///            virtual call leaves a constructor
class VELO_PLATFORM_EXPORT InputStateMachine : public Quon::Entity {
 public:
   ~InputStateMachine() override;

   /// Enters or leaves the zombie state, in which no reaction runs.
   virtual void quonDoZombieReactors( bool zombie );

   /// Whether events count yet: the first scan only builds the tree of machines.
   virtual bool initialScanDone() const;

   /// Starts or restarts the scan of the input.
   virtual void doInputScan();

   /// Creates the task in which the scan runs, if the machine has one of its own.
   virtual void doInitializeTask();

   /// Whether a reaction to a change of the input is in progress. A scan inside one never yields.
   virtual void inReactorIs( bool inReactor ) { nodeFlagSet( Flag::inReactor, inReactor ); }
   virtual bool inReactor() const { return nodeFlag( Flag::inReactor ); }

   virtual bool synchronous() const;

   /// Sets `initialized` and starts the machine: `doInitializeTask`, then `doInputScan`.
   void handleInitialized();
   bool initialized() const { return nodeFlag( Flag::initialized ); }

   /// Whether changes of the input are heard.
   void hasNotificationActiveIs( bool active ) {
      nodeFlagSet( Flag::hasNotificationActive, active );
   }
   bool hasNotificationActive() const { return nodeFlag( Flag::hasNotificationActive ); }

 protected:
   InputStateMachine();
};

} // namespace Ivx::Gen
