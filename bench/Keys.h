#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

/// Keys for collections under test, in random but always the same orders.
namespace bench {

template< class Kind >
std::vector< typename Kind::Key > keysFrom( std::uint64_t first, std::uint64_t count ) {
   std::vector< typename Kind::Key > keys;
   for ( std::uint64_t n = 0; n < count; ++n ) { keys.push_back( Kind::key( first + n ) ); }
   std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 7 ) );
   return keys;
}

template< class Keys >
Keys inAnotherOrder( Keys keys ) {
   std::shuffle( keys.begin(), keys.end(), std::mt19937_64( 8 ) );
   return keys;
}

template< class Collection, class Keys >
void fill( Collection & collection, const Keys & keys ) {
   const typename Collection::Value value{};
   for ( const auto & key : keys ) { collection.insert( key, value ); }
}

} // namespace bench
