// The classes whose virtual slots expected_vtables.txt lists; compiled for the compiler's class
// layout dump only. A slot that a class leaves open has no name there, so each abstract class has
// a stand-in here that fills the open slots and shows their order.

#include "Lumo/Node.h"
