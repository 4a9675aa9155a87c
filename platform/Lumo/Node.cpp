#include "Lumo/Node.h"

namespace Lumo {

Node::~Node() {
   LUMO_DEBUG_ASSERT( references() == ( nodeFlag( Flag::adopted ) ? 0 : 1 ) &&
                      "nobody refers to a node that is destroyed" );
}

void Node::lastUserGone() { delete this; }

Publisher * Node::publisher() const { return nullptr; }

void Node::lastReferenceDropped() {
   LUMO_ASSERT( nodeFlag( Flag::adopted ) && "only an adopted reference may be dropped" );
   nodeFlagSet( Flag::zombie, true );
   lastUserGone();
}

} // namespace Lumo
