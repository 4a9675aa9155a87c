#include "Quon/Entity.h"

namespace Quon {

Entity::~Entity() = default;

} // namespace Quon
