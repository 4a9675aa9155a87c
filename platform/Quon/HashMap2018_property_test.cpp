#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/KeyedCollectionModel.h"

namespace Quon::test {
namespace {

/// What is done, the keys or iterator it is done to, and how often or with which value.
using Step = std::tuple< unsigned, unsigned, unsigned >;

template< class Types >
void perform( ModelledCollection< Types > & both, const Step & step ) {
   const auto [what, a, b] = step;
   const unsigned key = a % both.kKeys;
   const unsigned otherKey = b % both.kKeys;
   switch ( what % 26 ) {
   case 0:
      return both.memberIs( key, b );
   case 1:
      return both.manyMembers( key, b % 300, a );
   case 2:
      return both.manyMembers( key, b % 300, b );
   case 3:
      return both.update( key, b );
   case 4:
      return both.newMember( key );
   case 5:
      return both.del( key );
   case 6:
      return both.manyDel( key, b % 300 );
   case 7:
      return both.take( key );
   case 8:
      return both.delFrom( key );
   case 9:
      return both.delUpTo( key );
   case 10:
   case 11:
      return both.delBetween( key, otherKey );
   case 12:
      return b % 4 == 0 ? both.delAll() : both.checkContents();
   case 13:
      return both.moveOut();
   case 14:
   case 15:
      return both.mergeBack();
   case 16:
      return both.start();
   case 17:
      return both.startAt( key );
   case 18:
      return both.copyWalk( a );
   case 19:
      return both.dropWalk( a );
   case 20:
   case 21:
      return both.advance( a, b % 100 );
   case 22:
      return b % 2 == 0 ? both.delCurrent( a ) : both.delAt( a );
   case 23:
      return b % 8 == 0 ? both.destroy() : both.drainFrom( a, b % 200 );
   case 24:
      return both.delIf( 1 + b % 5, a );
   case 25:
      return both.delUnder( a );
   }
}

template< class Types >
class KeyedCollectionProperty : public ::testing::Test {};

using AllTypes = ::testing::Types< Numbers, SmallNumbers, Names, OneHash, FewHashes, Records,
                                   LargeValues, LargeUnderFewHashes, NumberSet, NameSet,
                                   DenseNumbers, DenseStrings, DenseRecords, DenseSet >;
TYPED_TEST_SUITE( KeyedCollectionProperty, AllTypes );

TYPED_TEST( KeyedCollectionProperty, AgreesWithTheNaiveModelWhateverIsDoneInWhateverOrder ) {
   const bool held = rc::check( [] {
      const auto steps =
         *rc::gen::resize( 150, rc::gen::container< std::vector< Step > >( rc::gen::tuple(
                                   rc::gen::inRange( 0u, 26u ), rc::gen::inRange( 0u, 1000000u ),
                                   rc::gen::inRange( 0u, 1000000u ) ) ) );
      ModelledCollection< TypeParam > both;
      for ( const Step & step : steps ) {
         perform( both, step );
         both.checkWalks();
      }
      both.checkContents();
   } );
   EXPECT_TRUE( held );
}

} // namespace
} // namespace Quon::test
