#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>

#include "Lumo/String.h"
#include "Quon/DenseMap2018.h"
#include "Quon/HashMap2018.h"

/// The collections that the tests are instantiated with, described alike: how to make the n-th key
/// and a value for it. For tests only.
namespace Quon::test {

/// A long key, as strings are: a look-up may also be made with its number alone.
struct Name {
   std::string text;
   Name() = default;
   explicit Name( unsigned n ) : text( "policy-map-of-some-length/" + std::to_string( n ) ) {}
   std::uint64_t hash( unsigned seed ) const {
      return Lumo::Impl::hashBytes( text.data(), text.size(), seed );
   }
   auto operator<=>( const Name & ) const = default;
};

/// A key whose hash takes only `distinct` values: everything else collides fully.
template< unsigned distinct >
struct Colliding {
   unsigned number = 0;
   std::uint64_t hash( unsigned ) const { return number % distinct; }
   auto operator<=>( const Colliding & ) const = default;
};

/// A record that carries its key.
struct Record {
   std::uint64_t shortKey = 0;
   std::string text;
   auto operator<=>( const Record & ) const = default;
};
struct RecordTraits : KeyTraits< std::uint64_t > {
   struct KeyFunktor {
      const std::uint64_t & operator()( const Record & r ) const { return r.shortKey; }
   };
};

struct Numbers {
   using Collection = HashMap2018< std::uint64_t, std::string >;
   static std::uint64_t key( unsigned n ) { return n; }
   static std::string value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
struct SmallNumbers {
   using Collection = HashMap2018< std::int16_t, unsigned >;
   static std::int16_t key( unsigned n ) { return static_cast< std::int16_t >( n - 300 ); }
   static unsigned value( unsigned, unsigned v ) { return v; }
};
struct Names {
   using Collection = HashMap2018< Name, std::string >;
   static Name key( unsigned n ) { return Name( n ); }
   static std::string value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
struct OneHash {
   using Collection = HashMap2018< Colliding< 1 >, std::string >;
   static Colliding< 1 > key( unsigned n ) { return { n }; }
   static std::string value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
struct FewHashes {
   using Collection = HashMap2018< Colliding< 7 >, std::string >;
   static Colliding< 7 > key( unsigned n ) { return { n }; }
   static std::string value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
struct Records {
   using Collection = HashMap2018< std::uint64_t, Record, RecordTraits >;
   static std::uint64_t key( unsigned n ) { return n; }
   static Record value( unsigned n, unsigned v ) { return { n, "value " + std::to_string( v ) }; }
};
/// So large that a few hundred need many leaves.
struct Large {
   std::string text;
   std::array< char, 1500 > rest{};
   auto operator<=>( const Large & ) const = default;
};
struct LargeValues {
   using Collection = HashMap2018< std::uint64_t, Large >;
   static std::uint64_t key( unsigned n ) { return n; }
   static Large value( unsigned, unsigned v ) { return { "value " + std::to_string( v ) }; }
};
/// Many leaves with trees in some of them.
struct LargeUnderFewHashes {
   using Collection = HashMap2018< Colliding< 37 >, Large >;
   static Colliding< 37 > key( unsigned n ) { return { n }; }
   static Large value( unsigned, unsigned v ) { return { "value " + std::to_string( v ) }; }
};
/// Dense numbers, with a few in between that are as far away as can be.
inline std::uint64_t mostlyDense( unsigned n ) {
   return n % 97 != 96
             ? n
             : ~std::uint64_t{ 0 } - std::uint64_t{ n } * ( n < 300 ? 0x123456789abcd : 1 );
}
struct DenseNumbers {
   using Collection = DenseMap2018< std::string >;
   static std::uint64_t key( unsigned n ) { return mostlyDense( n ); }
   static std::string value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
/// Values that move as bytes.
struct DenseStrings {
   using Collection = DenseMap2018< Lumo::String >;
   static std::uint64_t key( unsigned n ) { return mostlyDense( n ); }
   static Lumo::String value( unsigned, unsigned v ) { return "value " + std::to_string( v ); }
};
struct DenseRecords {
   using Collection = DenseMap2018< Record, RecordTraits >;
   static std::uint64_t key( unsigned n ) { return n; }
   static Record value( unsigned n, unsigned v ) { return { n, "value " + std::to_string( v ) }; }
};
struct DenseSet {
   using Collection = DenseMap2018<>;
   static std::uint64_t key( unsigned n ) { return mostlyDense( n ); }
};
struct NumberSet {
   using Collection = HashMap2018< std::uint64_t >;
   static std::uint64_t key( unsigned n ) { return n; }
};
struct NameSet {
   using Collection = HashMap2018< Name >;
   static Name key( unsigned n ) { return Name( n ); }
};

} // namespace Quon::test
