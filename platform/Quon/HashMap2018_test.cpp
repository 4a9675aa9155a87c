#include "Quon/HashMap2018.h"
#include <gtest/gtest.h>
#include <memory>
#include <string>
using Map = Quon::HashMap2018< int, std::string >;
TEST( HashMap2018, Smoke ) {
   Map m;
   EXPECT_TRUE( m.memberIs( 1, "a" ).inserted );
   for ( int i = 0; i < 100; ++i ) { m.newMember( i ).value() = std::to_string( i ); }
   EXPECT_EQ( m.size(), 100u );
   auto it = m.iterator();
   auto it2 = it;
   m.deleteMember( it.key() );
   EXPECT_EQ( it.value(), std::to_string( it.key() ) );
   int n = 0;
   {
      auto w = m.moveOut();
      EXPECT_EQ( w.size(), 99u );
      m.memberIs( 5, "x" );
      m.mergeBack( std::move( w ) );
      EXPECT_EQ( m.lookup( 5 )->value(), "x" );
   }
   for ( ; it; it.advance() ) {
      ++n;
      m.deleteMember( it.key() );
   }
   EXPECT_TRUE( n == 99 || n == 100 );
   n = 0;
   for ( const auto & e : m ) {
      (void)e;
      ++n;
   }
   EXPECT_EQ( n, int( m.size() ) );
   m.update( 3, "q" );
   EXPECT_FALSE( m.takeMember( 77777 ) );
   m.deleteUpTo( 3 );
   m.deleteFrom( 3 );
   m.deleteBetween( 1, 2 );
   EXPECT_TRUE( m.empty() );
   Quon::HashMap2018< std::string > set;
   set.memberIs( "a" );
   EXPECT_TRUE( set.lookup( std::string_view( "a" ) ) );
   Quon::HashMap2018< int, std::unique_ptr< int > > u;
   u.memberIs( 1, nullptr );
   auto ui = u.iterator();
   auto o = u.moveOut();
   EXPECT_EQ( ui.key(), 1 );
   o.takeMember( 1 );
   EXPECT_TRUE( it2 );
}
