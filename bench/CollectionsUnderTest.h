#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unordered_map>

#include <boost/unordered/unordered_flat_map.hpp>

#include "Quon/DenseMap2018.h"
#include "Quon/HashMap2018.h"

/// One way to use our collections and the two we measure against, with the same keys and payloads.
namespace bench {

/// As large as a record of the stream.
struct Payload {
   std::uint64_t words[6] = {};
};

/// A key of 24 bytes with text in it.
struct TextKey {
   std::array< char, 24 > text{};
   std::uint64_t hash( unsigned seed ) const {
      return Lumo::Impl::hashBytes( text.data(), text.size(), seed );
   }
   bool operator==( const TextKey & other ) const {
      return std::memcmp( text.data(), other.text.data(), text.size() ) == 0;
   }
   auto operator<=>( const TextKey & other ) const {
      return std::memcmp( text.data(), other.text.data(), text.size() ) <=> 0;
   }
};

/// The hash that the others are given: ours, so that only the containers differ.
struct SameHash {
   using is_avalanching = void;
   template< class Key >
   std::size_t operator()( const Key & key ) const {
      return Quon::KeyTraits< Key >::hash( key, Quon::hashSeed() );
   }
};

/// Numbers as short keys are given out: 1, 2, 3 ...
struct NumberToPayload {
   using Key = std::uint64_t;
   using Value = Payload;
   static Key key( std::uint64_t n ) { return n + 1; }
};
struct TextToNumber {
   using Key = TextKey;
   using Value = std::uint64_t;
   static Key key( std::uint64_t n ) {
      Key key;
      std::snprintf( key.text.data(), key.text.size(), "class-%llx",
                     static_cast< unsigned long long >( n ) );
      return key;
   }
};

template< class Kind, class Map >
struct OursAs {
   using Key = typename Kind::Key;
   using Value = typename Kind::Value;
   Map map;
   void insert( const Key & key, const Value & value ) { map.memberIs( key, value ); }
   bool has( const Key & key ) const { return static_cast< bool >( map.lookup( key ) ); }
   void erase( const Key & key ) { map.deleteMember( key ); }
   std::uint64_t iterate() const {
      std::uint64_t sum = 0;
      for ( const auto & node : map ) { sum += *reinterpret_cast< const char * >( &node.value() ); }
      return sum;
   }
   void eraseWhileIterating() {
      for ( auto i = map.iterator(); i; i.advance() ) { map.deleteMember( i.key() ); }
   }
};
template< class Kind >
struct Ours : OursAs< Kind, Quon::HashMap2018< typename Kind::Key, typename Kind::Value > > {};

template< class Kind >
struct Dense : OursAs< Kind, Quon::DenseMap2018< typename Kind::Value > > {};

template< class Kind, class Map >
struct TheirsAs {
   using Key = typename Kind::Key;
   using Value = typename Kind::Value;
   Map map;
   void insert( const Key & key, const Value & value ) { map.insert_or_assign( key, value ); }
   bool has( const Key & key ) const { return map.find( key ) != map.end(); }
   void erase( const Key & key ) { map.erase( key ); }
   std::uint64_t iterate() const {
      std::uint64_t sum = 0;
      for ( const auto & node : map ) { sum += *reinterpret_cast< const char * >( &node.second ); }
      return sum;
   }
   void eraseWhileIterating() {
      for ( auto i = map.begin(); i != map.end(); ) {
         const auto current = i++;
         map.erase( current );
      }
   }
};
template< class Kind >
struct Flat
   : TheirsAs< Kind,
               boost::unordered_flat_map< typename Kind::Key, typename Kind::Value, SameHash > > {};
template< class Kind >
struct Std
   : TheirsAs< Kind, std::unordered_map< typename Kind::Key, typename Kind::Value, SameHash > > {};

} // namespace bench
