#pragma once

#include "Lumo/Hash.h"
#include "Quon/Hash.h"

#include <compare>
#include <concepts>
#include <cstdint>
#include <string_view>
#include <type_traits>

/// How a keyed collection hashes, compares and orders its keys.
///
/// A collection's own traits derive from `KeyTraits< Key >` and replace what differs. Traits that
/// also name a `KeyFunktor` (value -> its key) describe a collection whose key is taken from the
/// value; its elements then store the value alone.
///
/// Every function takes either a key or any probe type that hashes, compares and orders like the
/// key it stands for, so that a look-up need not build a key.
namespace Quon {

namespace Impl {

template< class K >
concept NumberKey = std::integral< K > || std::is_enum_v< K > || std::is_pointer_v< K >;

/// Hashes with the seed that it is given.
template< class K >
concept SeededHash = requires( const K & key, unsigned seed ) {
   { key.hash( seed ) } -> std::convertible_to< std::uint64_t >;
};

/// Knows its hash, seeded already.
template< class K >
concept OwnHash = !SeededHash< K > && requires( const K & key ) {
   { key.hash() } -> std::convertible_to< std::uint64_t >;
};

template< class K >
concept TextKey =
   !SeededHash< K > && !OwnHash< K > && std::convertible_to< const K &, std::string_view >;

template< NumberKey K >
std::uint64_t numberOf( K key ) {
   if constexpr ( std::is_pointer_v< K > ) {
      return reinterpret_cast< std::uintptr_t >( key );
   } else if constexpr ( std::is_enum_v< K > ) {
      return numberOf( static_cast< std::underlying_type_t< K > >( key ) );
   } else {
      return static_cast< std::uint64_t >( key );
   }
}

/// Three-way order, also for types that only know `<`.
template< class A, class B >
std::weak_ordering threeWay( const A & a, const B & b ) {
   if constexpr ( requires { std::weak_ordering( a <=> b ); } ) {
      return a <=> b;
   } else {
      return a < b ? std::weak_ordering::less
                   : ( b < a ? std::weak_ordering::greater : std::weak_ordering::equivalent );
   }
}

} // namespace Impl

/// Keys of class type: `hash( unsigned seed )` or `hash()` (or text), `==`, and `<=>` or `<`.
template< class Key >
struct KeyTraits {
   /// Mixed once more: the collection needs good top and low bits, also of modest hashes.
   template< class K2 >
   static std::uint64_t hash( const K2 & key, std::uint64_t seed ) {
      static_assert( Impl::TextKey< K2 > == Impl::TextKey< Key >,
                     "a probe hashes in the same way as the key it stands for" );
      if constexpr ( Impl::SeededHash< K2 > ) {
         return mix64( std::uint64_t{ key.hash( static_cast< unsigned >( seed ) ) } ^ seed );
      } else if constexpr ( Impl::OwnHash< K2 > ) {
         return mix64( std::uint64_t{ key.hash() } ^ seed );
      } else {
         static_assert( Impl::TextKey< K2 >, "the key has no hash()" );
         const std::string_view text = key;
         return mix64( Lumo::Impl::hashBytes( text.data(), text.size(), seed ) );
      }
   }

   template< class A, class B >
   static bool isEq( const A & a, const B & b ) {
      return a == b;
   }

   template< class A, class B >
   static std::weak_ordering order( const A & a, const B & b ) {
      return Impl::threeWay( a, b );
   }
};

/// Numbers are mixed by a bijection: equal hashes mean equal keys.
template< Impl::NumberKey Key >
struct KeyTraits< Key > {
   static std::uint64_t hash( Key key, std::uint64_t seed ) {
      return mix64( Impl::numberOf( key ) ^ seed );
   }
   static bool isEq( Key a, Key b ) { return a == b; }
   static std::weak_ordering order( Key a, Key b ) { return a <=> b; }
};

} // namespace Quon
