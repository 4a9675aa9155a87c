#include "Plink/Plink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "Quon/Quon.h"

namespace Plink::Fib::test {
namespace {

FecId ofType( std::uint64_t type ) { return FecId( type << 56 | 0x00aabbcc'ddeeff11 ); }

TEST( FecId, IsOneWord ) { EXPECT_EQ( sizeof( FecId ), 8U ); }

TEST( FecId, KeepsItsAdjacencyTypeInTheTopByte ) {
   EXPECT_EQ( ofType( 3 ).adjType(), AdjType::nexthopGroup );
   EXPECT_NE( ofType( 2 ).adjType(), AdjType::nexthopGroup );
   EXPECT_NE( FecId( 3 ).adjType(), AdjType::nexthopGroup );
   EXPECT_EQ( static_cast< int >( FecId().adjType() ), 0 );
   EXPECT_EQ( static_cast< int >( ofType( 26 ).adjType() ), 26 );
}

TEST( FecId, AnAdjacencyTypeThatDoesNotExistIsFatal ) {
   for ( const std::uint64_t type : { 27, 28, 255 } ) {
      const Lumo::ThrowingAssertionHandler assertions;
      EXPECT_THROW( static_cast< void >( ofType( type ).adjType() ), Lumo::AssertionThrown );
      EXPECT_EQ( assertions.failures().back().condition(),
                 "(value_ >> Fib::adjTypePos()) < Fib::adjTypeMax()" );
   }
}

TEST( FecIdDeathTest, AnAdjacencyTypeThatDoesNotExistEndsTheProcess ) {
   EXPECT_DEATH( static_cast< void >( ofType( 27 ).adjType() ),
                 "\\(value_ >> Fib::adjTypePos\\(\\)\\) < Fib::adjTypeMax\\(\\)" );
}

TEST( FecId, StandsForANexthopGroupAndComesBack ) {
   for ( const std::uint32_t id : { 0U, 1U, 42U, 0x80000000U, 0xffffffffU } ) {
      const FecId fecId = FecId::nexthopGroupIdToFecId( id );
      EXPECT_EQ( fecId.value(), 0x03000000'00000000U + id );
      EXPECT_EQ( fecId.adjType(), AdjType::nexthopGroup );
      EXPECT_EQ( FecId::fecIdToNexthopGroupId( fecId ), id );
   }
}

TEST( FecId, IsComparedOrderedAndHashedByItsValue ) {
   EXPECT_EQ( FecId( 7 ), FecId( 7 ) );
   EXPECT_NE( FecId( 7 ), FecId( 7 | std::uint64_t{ 1 } << 56 ) );
   EXPECT_LT( FecId( 7 ), FecId( 8 ) );
   EXPECT_EQ( FecId( 7 ).hash(), 7U );
   Quon::HashMap2018< FecId > set;
   EXPECT_TRUE( set.memberIs( FecId( 7 ) ) );
   EXPECT_FALSE( set.memberIs( FecId( 7 ) ) );
}

TEST( FecId, HasATextForm ) {
   const FecId fecId = FecId::nexthopGroupIdToFecId( 1 );
   const std::string text = "Value('Plink::Fib::FecId', ** {'value': 216172782113783809})";
   EXPECT_EQ( fmt::format( "{}", fecId ), text );
   EXPECT_EQ( testing::PrintToString( fecId ), text );
   EXPECT_EQ( Quon::fromText< FecId >( text ), fecId );
   Quon::CharRange range( text );
   EXPECT_EQ( FecId( range ), fecId );
}

} // namespace
} // namespace Plink::Fib::test
