#pragma once

#include <type_traits>

namespace Lumo {

namespace Impl {

template< class T >
concept SaysWhetherRelocatable = requires {
   { T::kRelocatable };
};

template< class T >
constexpr bool relocatable() {
   if constexpr ( SaysWhetherRelocatable< T > ) {
      return T::kRelocatable;
   } else {
      return std::is_trivially_copyable_v< T >;
   }
}

} // namespace Impl

/// Whether values of these types may move to another address by a copy of their bytes, the
/// originals being forgotten and not destroyed: the same as a move and a destruction, for whole
/// runs of them at once.
///
/// True of whatever may be copied so. A class that nobody points into says what its parts allow:
///
///    static constexpr bool kRelocatable = Lumo::isRelocatable< Lumo::String, Lumo::Ptr< Node > >;
template< class... T >
constexpr bool isRelocatable = ( Impl::relocatable< T >() && ... );

} // namespace Lumo
