#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Ipnet/AnyAddress.h"
#include "Quon/Exceptions.h"
#include "Quon/ParseError.h"

namespace Ipnet::test {
namespace {

RC_GTEST_PROP( IpnetProperty, EveryValueComesBackFromItsText, () ) {
   const IpAddr addr = anyAddr();
   RC_ASSERT( IpAddr( addr.toString() ) == addr );
   RC_ASSERT( Quon::fromText< IpAddr >( Quon::text( addr ) ) == addr );
   const IpPrefix prefix = anyPrefix();
   RC_ASSERT( IpPrefix( prefix.toString() ) == prefix );
   RC_ASSERT( Quon::fromText< IpPrefix >( Quon::text( prefix ) ) == prefix );
   const IntfId id( *rc::gen::arbitrary< std::uint64_t >() );
   RC_ASSERT( Quon::fromText< IntfId >( Quon::text( id ) ) == id );
}

RC_GTEST_PROP( IpnetProperty, ATextThatIsAnAddressIsWrittenInOneWay, () ) {
   std::string text = anyAddr().toString();
   text[*rc::gen::inRange< std::size_t >( 0, text.size() )] =
      *rc::gen::elementOf( std::string( "0123456789abcdefABCDEF.:/ \0", 26 ) );
   try {
      const IpAddr addr( text );
      RC_ASSERT( IpAddr( addr.toString() ) == addr );
   } catch ( const Quon::RangeException & ) { RC_TAG( "refused" ); }
}

/// The check that a prefix makes, bit by bit.
bool hasBitsBehind( const IpAddr & addr, unsigned length ) {
   for ( unsigned bit = length; bit < addr.bits(); ++bit ) {
      if ( addr.bytes()[bit / 8] >> ( 7 - bit % 8 ) & 1 ) { return true; }
   }
   return false;
}

RC_GTEST_PROP( IpnetProperty, APrefixIsRefusedExactlyForBitsBehindItsLength, () ) {
   const IpAddr addr = *rc::gen::arbitrary< bool >() ? anyAddr() : anyPrefix().address();
   const unsigned length = *rc::gen::inRange( 0U, 140U );
   const bool right = length <= addr.bits() && !hasBitsBehind( addr, length );
   try {
      const IpPrefix prefix( addr, length );
      RC_ASSERT( right );
      RC_ASSERT( prefix.length() == length );
   } catch ( const Quon::RangeException & ) { RC_ASSERT( !right ); }
}

RC_GTEST_PROP( IpnetProperty, OrderAndEqualityAgree, () ) {
   const IpPrefix a = anyPrefix(), b = *rc::gen::arbitrary< bool >() ? anyPrefix() : a;
   RC_ASSERT( ( a == b ) == ( ( a <=> b ) == 0 ) );
   RC_ASSERT( ( a < b ) == ( b > a ) );
   if ( a == b ) { RC_ASSERT( a.hash( 3 ) == b.hash( 3 ) ); }
}

} // namespace
} // namespace Ipnet::test
