#include "Ivx/InputStateMachine.h"

namespace Ivx::Gen {

InputStateMachine::InputStateMachine() = default;
InputStateMachine::~InputStateMachine() = default;

void InputStateMachine::quonDoZombieReactors( bool zombie ) { nodeFlagSet( Flag::zombie, zombie ); }

bool InputStateMachine::initialScanDone() const { return true; }

void InputStateMachine::doInputScan() {}

void InputStateMachine::doInitializeTask() {}

bool InputStateMachine::synchronous() const { return true; }

void InputStateMachine::handleInitialized() {
   nodeFlagSet( Flag::initialized, true );
   doInitializeTask();
   doInputScan();
}

} // namespace Ivx::Gen
