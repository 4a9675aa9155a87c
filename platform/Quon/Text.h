#pragma once

#include <concepts>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/String.h"
#include "Quon/Attribute.h"
#include "Quon/CharRange.h"
#include "Quon/Exceptions.h"
#include "Quon/Optional.h"

/// Text forms: one grammar for all types, printed and parsed by the types' attribute tables.
///
///    value     Value('Type::Name', ** {'attr1': V1, 'attr2': V2})
///    entity    Value('Type::Name', * [V1, V2])
///    integer   -7                    bool      True  False
///    string    'any\x00bytes\n'      absent    None   (an empty optional, a null pointer)
///
/// With `Value` defined as any function, a text form is a Python expression; a string has one
/// character per byte. Parsing accepts exactly what printing makes, see CharRange.h.
///
/// A value type has a default constructor, `kTypeName` and `attributes()` (see Attribute.h), and
///
///    explicit PbrCountersKey( Quon::CharRange & text ) { Quon::parseText( text, *this ); }
///    friend std::ostream & operator<<( std::ostream & os, const PbrCountersKey & key ) {
///       return Quon::printText( os, key );
///    }
///
/// An entity's table names getters; it is built again by the constructor that takes all of its
/// attributes in the table's order. A present optional that holds a null pointer prints like an
/// absent one and reads back as absent.
namespace Quon {

/// How values of type `T` are written and read:
/// `static void print( std::string & out, const T & )` and `static T parse( CharRange & )`.
template< class T >
struct TextForm;

/// Appends the text form of `value`.
template< class T >
void appendText( std::string & out, const T & value ) {
   TextForm< T >::print( out, value );
}

/// The text form of `value`.
template< class T >
std::string text( const T & value ) {
   std::string out;
   appendText( out, value );
   return out;
}

/// Writes the text form as one field: width and fill apply to the whole, other flags to nothing.
template< class T >
std::ostream & printText( std::ostream & os, const T & value ) {
   return os << text( value );
}

namespace Impl {

VELO_PLATFORM_EXPORT void appendString( std::string & out, std::string_view bytes );

template< class T >
concept Described = requires { std::string_view( T::kTypeName ); };
template< class T >
concept DescribedEntity = Described< T > && std::derived_from< T, Lumo::Node >;
template< class T >
concept DescribedValue = Described< T > && !std::derived_from< T, Lumo::Node >;

/// The fixed texts around the attributes of a described type, the same for both directions.
template< class T >
std::string opening() {
   constexpr bool sequence = DescribedEntity< T >;
   return fmt::format( "Value('{}', {}", std::string_view( T::kTypeName ),
                       sequence ? "* [" : "** {" );
}
template< class T >
constexpr std::string_view closing() {
   return DescribedEntity< T > ? "])" : "})";
}
template< class T >
std::string label( bool first, std::string_view name ) {
   const std::string_view separator = first ? "" : ", ";
   if constexpr ( DescribedEntity< T > ) { return std::string( separator ); }
   return fmt::format( "{}'{}': ", separator, name );
}

/// Prints a value or entity by its attribute table.
template< class T >
void printAttributes( std::string & out, const T & object ) {
   bool first = true;
   const auto print = [&]( const auto & attribute ) {
      using Value = typename std::remove_cvref_t< decltype( attribute ) >::Value;
      out += label< T >( std::exchange( first, false ), attribute.name );
      TextForm< Value >::print( out, attribute.get( object ) );
   };
   out += opening< T >();
   std::apply( [&]( const auto &... each ) { ( print( each ), ... ); }, T::attributes() );
   out += closing< T >();
}

/// Reads attribute number `I` of a `T` and hands it to `take`. What `take` refuses with a range
/// error becomes a parse error at the place of the attribute.
template< class T, std::size_t I, class Take >
auto parseAttribute( CharRange & range, const Take & take ) {
   constexpr auto attribute = std::get< I >( T::attributes() );
   const CharRange::AttributeScope scope( range, attribute.name );
   range.expect( label< T >( I == 0, attribute.name ) );
   const std::size_t start = range.position();
   try {
      return take( attribute, TextForm< typename decltype( attribute )::Value >::parse( range ) );
   } catch ( const RangeException & e ) { range.failAt( start, e.what() ); }
}

template< class T >
using AttributeIndices =
   std::make_index_sequence< std::tuple_size_v< decltype( T::attributes() ) > >;

} // namespace Impl

/// Reads the text form at the cursor into `value`. On an error `value` is left partly assigned.
template< Impl::DescribedValue T >
void parseText( CharRange & range, T & value ) {
   const auto set = [&]( const auto & attribute, auto && parsed ) {
      attribute.set( value, std::forward< decltype( parsed ) >( parsed ) );
   };
   range.expect( Impl::opening< T >() );
   [&]< std::size_t... I >( std::index_sequence< I... > ) {
      ( Impl::parseAttribute< T, I >( range, set ), ... );
   }( Impl::AttributeIndices< T >() );
   range.expect( Impl::closing< T >() );
}

/// The value whose text form is the whole of `text`.
template< class T >
T fromText( std::string_view text ) {
   CharRange range( text );
   T value = TextForm< T >::parse( range );
   range.expectEnd();
   return value;
}

template< Impl::DescribedValue T >
struct TextForm< T > {
   static void print( std::string & out, const T & value ) { Impl::printAttributes( out, value ); }
   static T parse( CharRange & range ) {
      T value;
      parseText( range, value );
      return value;
   }
};

/// `True` or `False`.
template<>
struct TextForm< bool > {
   static void print( std::string & out, bool value ) { out += value ? "True" : "False"; }
   static bool parse( CharRange & range ) { return range.parseBool(); }
};

/// Decimal; what `I` cannot hold is an error.
template< std::integral I >
struct TextForm< I > {
   static void print( std::string & out, I value ) { out += std::to_string( value ); }
   static I parse( CharRange & range ) { return range.parseInteger< I >(); }
};

/// In quotes, with escapes.
template<>
struct TextForm< Lumo::String > {
   static void print( std::string & out, const Lumo::String & s ) { Impl::appendString( out, s ); }
   static Lumo::String parse( CharRange & range ) { return range.parseString(); }
};

/// The value, or `None`.
template< class T >
struct TextForm< Optional< T > > {
   static void print( std::string & out, const Optional< T > & optional ) {
      if ( optional ) {
         appendText( out, *optional );
      } else {
         out += "None";
      }
   }
   static Optional< T > parse( CharRange & range ) {
      if ( range.accept( "None" ) ) { return {}; }
      return TextForm< T >::parse( range );
   }
};

/// An entity on its own can only be printed; it is read through a pointer to it.
template< Impl::DescribedEntity T >
struct TextForm< T > {
   static void print( std::string & out, const T & entity ) {
      Impl::printAttributes( out, entity );
   }
};

/// The entity, or `None`; what is read becomes an entity of its own.
template< class T >
struct TextForm< Lumo::Ptr< T > > {
   using Entity = std::remove_const_t< T >;

   static void print( std::string & out, const Lumo::Ptr< T > & entity ) {
      if ( entity ) {
         appendText< Entity >( out, *entity );
      } else {
         out += "None";
      }
   }

   static Lumo::Ptr< T > parse( CharRange & range ) {
      if ( range.accept( "None" ) ) { return nullptr; }
      return parseEntity( range, Impl::AttributeIndices< Entity >() );
   }

 private:
   template< std::size_t... I >
   static Lumo::Ptr< T > parseEntity( CharRange & range, std::index_sequence< I... > ) {
      const auto keep = []( const auto &, auto parsed ) { return parsed; };
      const std::size_t start = range.position();
      range.expect( Impl::opening< Entity >() );
      // Braces: the attributes are read from left to right.
      std::tuple values{ Impl::parseAttribute< Entity, I >( range, keep )... };
      range.expect( Impl::closing< Entity >() );
      try {
         return Lumo::makeNode< Entity >( std::move( std::get< I >( values ) )... );
      } catch ( const RangeException & e ) { range.failAt( start, e.what() ); }
   }
};

} // namespace Quon

/// Every described type prints its text form with {fmt}.
template< Quon::Impl::Described T >
struct fmt::formatter< T > : fmt::formatter< fmt::string_view > {
   template< class Context >
   auto format( const T & value, Context & context ) const {
      return fmt::formatter< fmt::string_view >::format( Quon::text( value ), context );
   }
};
