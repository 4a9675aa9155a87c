#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "Lumo/Assert.h"
#include "Lumo/Relocatable.h"

/// The element of a keyed collection in its three forms: key and value, key alone (a set), and a
/// value that carries its own key.
namespace Quon::detail {

template< class Traits >
concept KeyTakenFromValue = requires { typename Traits::KeyFunktor; };

/// Swaps, byte by byte if that is the same: large values are many small members to the compiler.
template< class T >
void swapRelocating( T & a, T & b ) {
   if constexpr ( Lumo::isRelocatable< T > ) {
      alignas( T ) std::byte between[sizeof( T )];
      std::memcpy( between, static_cast< const void * >( &a ), sizeof( T ) );
      std::memcpy( static_cast< void * >( &a ), static_cast< const void * >( &b ), sizeof( T ) );
      std::memcpy( static_cast< void * >( &b ), between, sizeof( T ) );
   } else {
      std::swap( a, b );
   }
}

/// Says that a value is not given but made.
struct MadeInPlace {};

/// Key and value side by side.
template< class Key, class Value, class Traits >
class Element {
 public:
   template< class V >
   Element( const Key & key, V && value ) : key_( key ), value_( std::forward< V >( value ) ) {}
   template< class Make >
   Element( const Key & key, MadeInPlace, const Make & make ) : key_( key ), value_( make() ) {}

   const Key & fwkKey() const { return key_; }
   const Value & value() const { return value_; }
   Value & value() { return value_; }

   Value takeValue() && { return std::move( value_ ); }
   void swapValue( Value & other ) { swapRelocating( value_, other ); }
   static void checkKey( const Key &, const Value & ) {}

   static constexpr bool kRelocatable = Lumo::isRelocatable< Key, Value >;

 private:
   Key key_;
   [[no_unique_address]] Value value_;
};

/// The element of a set.
template< class Key, class Traits >
class Element< Key, void, Traits > {
 public:
   explicit Element( const Key & key ) : key_( key ) {}

   const Key & fwkKey() const { return key_; }

 private:
   Key key_;
};

/// The element of a collection whose key is taken from the value. The value is read-only here:
/// changing its key in place would lose it.
template< class Key, class Value, KeyTakenFromValue Traits >
   requires( !std::is_void_v< Value > )
class Element< Key, Value, Traits > {
 public:
   using KeyFunktor = typename Traits::KeyFunktor;

   template< class V >
   Element( const Key &, V && value ) : value_( std::forward< V >( value ) ) {}
   template< class Make >
   Element( const Key &, MadeInPlace, const Make & make ) : value_( make() ) {}

   const Key & fwkKey() const { return KeyFunktor()( value_ ); }
   const Value & value() const { return value_; }

   Value takeValue() && { return std::move( value_ ); }
   void swapValue( Value & other ) { swapRelocating( value_, other ); }

   /// Fatal unless `value` carries `key`. Asked before anything is changed.
   static void checkKey( const Key & key, const Value & value ) { Check{ key }( value ); }

   static constexpr bool kRelocatable = Lumo::isRelocatable< Value >;

 private:
   /// Spelt this way because the text of the condition is what an operator finds in the log.
   struct Check {
      const Key & key;
      const Key & fwkKey() const { return key; }
      void operator()( const Value & _value ) const {
         LUMO_ASSERT( fwkKey() == KeyFunktor()( _value ) );
      }
   };

   Value value_;
};

} // namespace Quon::detail
