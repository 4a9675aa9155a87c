#include <string>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/ParseError.h"
#include "Routing/Fib/AnyVia.h"

namespace Routing::Fib::test {
namespace {

RC_GTEST_PROP( FibProperty, EveryValueComesBackFromItsText, () ) {
   const FibOverrideVia via = anyOverride();
   RC_ASSERT( Quon::fromText< FibOverrideVia >( Quon::text( via ) ) == via );
   const LabelStack stack = anyLabelStack();
   RC_ASSERT( LabelStack( stack.toString() ) == stack );
}

RC_GTEST_PROP( FibProperty, ATextThatParsesIsTheOneTextOfItsValue, () ) {
   std::string damaged = Quon::text( anyOverride() );
   const auto at = *rc::gen::inRange< std::size_t >( 0, damaged.size() );
   if ( *rc::gen::arbitrary< bool >() ) {
      damaged.erase( at, 1 );
   } else {
      damaged[at] = *rc::gen::elementOf( std::string( "0123456789abcdef./:'" ) );
   }
   try {
      RC_ASSERT( Quon::text( Quon::fromText< FibOverrideVia >( damaged ) ) == damaged );
      RC_TAG( "parsed" );
   } catch ( const Quon::ParseError & ) { RC_TAG( "refused" ); }
}

RC_GTEST_PROP( FibProperty, EqualityOrderAndHashAgree, () ) {
   const FibOverrideVia a = anyOverride();
   const FibOverrideVia b = *rc::gen::arbitrary< bool >() ? a : anyOverride();
   RC_ASSERT( ( a == b ) == ( ( a <=> b ) == 0 ) );
   RC_ASSERT( ( a < b ) == ( b > a ) );
   if ( a == b ) { RC_ASSERT( a.hash( 7 ) == b.hash( 7 ) ); }
   if ( a.matcher() == b.matcher() ) {
      RC_ASSERT( a.matcher().hash( 0 ) == b.matcher().hash( 0 ) );
   }
}

/// The order of label stacks is that of their numbers, however they are kept.
RC_GTEST_PROP( FibProperty, LabelStacksAreOrderedAsListsOfNumbers, () ) {
   const LabelStack a = anyLabelStack(), b = anyLabelStack();
   const auto list = []( const LabelStack & stack ) {
      std::vector< std::uint32_t > labels;
      for ( std::size_t at = 0; at < stack.depth(); ++at ) {
         labels.push_back( stack.label( at ) );
      }
      return labels;
   };
   RC_ASSERT( ( a < b ) == ( list( a ) < list( b ) ) );
}

} // namespace
} // namespace Routing::Fib::test
