#pragma once

#include "Quon/KeyTraits.h"
#include "Quon/detail/HashStore.h"
#include "Quon/detail/KeyedCollection.h"

namespace Quon {

/// The keyed collection of entities: `Value` by `Key`, or a set of keys with `Value = void`.
template< class Key, class Value = void, class Traits = KeyTraits< Key > >
class HashMap2018 : public detail::KeyedCollection< HashMap2018< Key, Value, Traits >,
                                                    detail::HashStore< Key, Value, Traits > > {};

} // namespace Quon
