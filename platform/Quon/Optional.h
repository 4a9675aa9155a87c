#pragma once

#include <compare>
#include <optional>
#include <utility>

#include "Lumo/Relocatable.h"
#include "Quon/Exceptions.h"

namespace Quon {

/// A value that may be absent. Reading an absent one raises `BadOptionalAccess`.
template< class T >
class Optional {
 public:
   Optional() = default;
   Optional( std::nullopt_t ) {}
   Optional( T value ) : value_( std::move( value ) ) {}

   bool hasValue() const { return value_.has_value(); }
   explicit operator bool() const { return hasValue(); }

   const T & value() const {
      if ( !value_ ) { Impl::throwBadOptionalAccess(); }
      return *value_;
   }
   const T & operator*() const { return value(); }
   const T * operator->() const { return &value(); }

   void reset() { value_.reset(); }

   friend bool operator==( const Optional &, const Optional & ) = default;
   /// Absent comes first. For values that have an order.
   friend auto operator<=>( const Optional &, const Optional & ) = default;

   static constexpr bool kRelocatable = Lumo::isRelocatable< T >;

 private:
   std::optional< T > value_;
};

} // namespace Quon
