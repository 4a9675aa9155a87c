#include "Lumo/Node.h"

namespace Lumo {

Node::~Node() = default;

void Node::lastUserGone() { delete this; }

Publisher * Node::publisher() const { return nullptr; }

void Node::lastReferenceDropped() {
   LUMO_ASSERT( nodeFlag( Flag::adopted ) && "a node is made by makeNode, which adopts it" );
   nodeFlagSet( Flag::zombie, true );
   lastUserGone();
}

} // namespace Lumo
