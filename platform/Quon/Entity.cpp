#include "Quon/Entity.h"

namespace Quon {

Entity::~Entity() = default;
PublishingEntity::~PublishingEntity() = default;

} // namespace Quon
