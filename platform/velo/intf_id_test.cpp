#include "velo/intf_id.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

namespace velo {
namespace {

TEST( IntfId, IsOneToOneWithTheIdentifierOfTheStateDatabase ) {
   static_assert( sizeof( intf_id_t ) == 8 );
   for ( const std::uint64_t number : { 0ULL, 1ULL, 1ULL << 32, 1ULL << 63, ~0ULL } ) {
      const intf_id_t id( number );
      EXPECT_EQ( Ipnet::IntfId( id ), Ipnet::IntfId( number ) );
      EXPECT_EQ( intf_id_t( Ipnet::IntfId( id ) ), id );
      EXPECT_EQ( id.hash(), intf_id_t( number ).hash() );
   }
   EXPECT_LT( intf_id_t( 1 ), intf_id_t( 2 ) );
}

TEST( IntfId, IdentifiersThatDifferInHighBitsDifferInTheLowHalfOfTheirHashes ) {
   std::vector< std::uint32_t > low;
   for ( std::uint64_t n = 0; n < 1000; ++n ) {
      low.push_back( static_cast< std::uint32_t >( intf_id_t( n << 40 ).hash() ) );
   }
   std::sort( low.begin(), low.end() );
   EXPECT_EQ( std::unique( low.begin(), low.end() ), low.end() );
}

} // namespace
} // namespace velo
