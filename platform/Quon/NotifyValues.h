#pragma once

#include <type_traits>

#include "Lumo/Publisher.h"

namespace Quon::Impl {

/// What a change made of one attribute or collection element. Readable until the dispatch function
/// that asked returns.
template< class Value >
struct NotifyValues {
   const Value * previous; ///< Null: there was none, the element was added.
   const Value * current;  ///< Null: there is none any more, the element was removed.
};

/// The change of `attributeId` that `publisher` is telling now, innermost first; both null outside
/// of a dispatch. `Value` must be the type that the publisher documents for the attribute. O(depth
/// of nested dispatches).
///
///    const auto [previous, current] =
///       Quon::Impl::getNotifyValues( *publisher, attributeId, std::type_identity< Counters >() );
template< class Value >
NotifyValues< Value > getNotifyValues( const Lumo::Publisher & publisher, short attributeId,
                                       std::type_identity< Value > ) {
   const Lumo::Notification * told = publisher.notification( attributeId );
   if ( !told ) { return { nullptr, nullptr }; }
   return { static_cast< const Value * >( told->oldValue ),
            static_cast< const Value * >( told->newValue ) };
}

} // namespace Quon::Impl
