#pragma once

#include <array>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

/// How a type describes its attributes, once, for everything that walks over them.
///
///    class PbrCountersKey {
///       ...
///       static constexpr std::string_view kTypeName = "VeloSdkRpc::PbrCountersKey";
///       static constexpr auto attributes() {
///          return std::make_tuple(
///             Quon::attribute( "policyKey", &PbrCountersKey::policyKey_ ),
///             Quon::attribute( "name", &PbrCountersKey::name, &PbrCountersKey::nameIs ) );
///       }
///
/// A data member is named by its pointer; an attribute that is computed or checked, such as one bit
/// of a set, by its getter and setter; one that is given at construction by its getter alone.
namespace Quon {

namespace Impl {

template< class T, class M >
struct MemberAttribute {
   using Value = M;
   std::string_view name;
   M T::* member;

   constexpr const M & get( const T & object ) const { return object.*member; }
   constexpr void set( T & object, M value ) const { object.*member = std::move( value ); }
};

template< class T, class Result >
struct ReadAttribute {
   using Value = std::remove_cvref_t< Result >;
   std::string_view name;
   Result ( T::*getter )() const;

   constexpr Result get( const T & object ) const { return ( object.*getter )(); }
};

template< class T, class Result, class Argument >
struct PropertyAttribute : ReadAttribute< T, Result > {
   using typename ReadAttribute< T, Result >::Value;
   void ( T::*setter )( Argument );

   constexpr void set( T & object, Value value ) const { ( object.*setter )( std::move( value ) ); }
};

} // namespace Impl

template< class T, class M >
   requires std::is_object_v< M >
constexpr Impl::MemberAttribute< T, M > attribute( std::string_view name, M T::* member ) {
   return { name, member };
}

template< class T, class Result >
constexpr Impl::ReadAttribute< T, Result > attribute( std::string_view name,
                                                      Result ( T::*getter )() const ) {
   return { name, getter };
}

template< class T, class Result, class Argument >
constexpr Impl::PropertyAttribute< T, Result, Argument >
attribute( std::string_view name, Result ( T::*getter )() const, void ( T::*setter )( Argument ) ) {
   return { { name, getter }, setter };
}

/// The names in `T`'s attribute table, in order.
template< class T >
inline constexpr auto kAttributeNames = std::apply(
   []( const auto &... attribute ) {
      return std::array< std::string_view, sizeof...( attribute ) >{ attribute.name... };
   },
   T::attributes() );

} // namespace Quon
