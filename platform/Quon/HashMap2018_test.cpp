#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Lumo/String.h"
#include "Lumo/ThrowingAssertionHandler.h"
#include "Quon/KeyedCollectionTestTypes.h"

namespace Quon::test {
namespace {

/// What every keyed collection promises, whatever its keys and however it is built.
template< class Types >
class KeyedCollection : public ::testing::Test {
 protected:
   using Collection = typename Types::Collection;
   using Key = typename Collection::Key;
   struct Before {
      bool operator()( const Key & a, const Key & b ) const { return Collection::isBefore( a, b ); }
   };
   using Keys = std::set< Key, Before >;

   static constexpr unsigned kMany = 2000;

   static Key key( unsigned n ) { return Types::key( n ); }
   static bool insert( Collection & collection, unsigned n, unsigned v = 0 ) {
      if constexpr ( Collection::hasValue ) {
         return collection.memberIs( key( n ), Types::value( n, v ) ).inserted;
      } else {
         return collection.memberIs( key( n ) ).inserted;
      }
   }
   bool insert( unsigned n, unsigned v = 0 ) { return insert( collection, n, v ); }
   void insertMany( unsigned count = kMany ) {
      for ( unsigned n = 0; n < count; ++n ) { insert( n ); }
   }
   static Keys keys( unsigned from, unsigned to ) {
      Keys all;
      for ( unsigned n = from; n < to; ++n ) { all.insert( key( n ) ); }
      return all;
   }
   static Keys keysOf( const Collection & collection ) {
      Keys all;
      for ( const auto & node : collection ) { EXPECT_TRUE( all.insert( node.fwkKey() ).second ); }
      EXPECT_EQ( all.size(), collection.size() );
      return all;
   }
   static bool same( const Keys & a, const Keys & b ) {
      return std::equal( a.begin(), a.end(), b.begin(), b.end() );
   }

   Collection collection;
};

using AllTypes = ::testing::Types< Numbers, SmallNumbers, Names, OneHash, FewHashes, Records,
                                   LargeValues, LargeUnderFewHashes, NumberSet, NameSet,
                                   DenseNumbers, DenseStrings, DenseRecords, DenseSet >;
TYPED_TEST_SUITE( KeyedCollection, AllTypes );

TYPED_TEST( KeyedCollection, StartsEmpty ) {
   EXPECT_TRUE( this->collection.empty() );
   EXPECT_EQ( this->collection.size(), 0u );
   EXPECT_FALSE( this->collection.lookup( this->key( 1 ) ) );
   EXPECT_FALSE( this->collection.iterator() );
   EXPECT_FALSE( this->collection.checkedIterator() );
   EXPECT_FALSE( this->collection.deleteMember( this->key( 1 ) ) );
   this->collection.memberDelAll();
   EXPECT_EQ( this->collection.version(), 0u );
}

TYPED_TEST( KeyedCollection, FindsWhatWasInsertedAndNothingElse ) {
   this->insertMany();
   for ( unsigned n = 0; n < this->kMany; ++n ) {
      const auto node = this->collection.lookup( this->key( n ) );
      ASSERT_TRUE( node );
      EXPECT_TRUE( node->fwkKey() == this->key( n ) );
      EXPECT_FALSE( this->collection[this->key( n + this->kMany )] );
   }
}

TYPED_TEST( KeyedCollection, SaysWhetherAKeyWasNew ) {
   EXPECT_TRUE( this->insert( 5 ) );
   EXPECT_FALSE( this->insert( 5 ) );
   EXPECT_EQ( this->collection.size(), 1u );
}

TYPED_TEST( KeyedCollection, VisitsEveryElementOnceInItsOwnOrder ) {
   this->insertMany();
   const auto expected = this->keys( 0, this->kMany );
   auto at = expected.begin();
   for ( const auto & node : this->collection ) { EXPECT_TRUE( node.fwkKey() == *at++ ); }
   EXPECT_TRUE( at == expected.end() );
   at = expected.begin();
   for ( auto i = this->collection.iterator(); i; i.advance() ) { EXPECT_TRUE( i.key() == *at++ ); }
   EXPECT_TRUE( at == expected.end() );
}

TYPED_TEST( KeyedCollection, StartsAtAKeyOrAtTheNextOneWhenThatIsGone ) {
   this->insertMany();
   const auto all = this->keys( 0, this->kMany );
   for ( unsigned n = 0; n < this->kMany; n += 3 ) {
      this->collection.deleteMember( this->key( n ) );
   }
   for ( unsigned n = 0; n < this->kMany; n += 50 ) {
      auto expected = all.lower_bound( this->key( n ) );
      while ( expected != all.end() && !this->collection.lookup( *expected ) ) { ++expected; }
      const auto i = this->collection.iteratorFrom( this->key( n ) );
      const auto checked = this->collection.checkedIteratorFrom( this->key( n ) );
      ASSERT_EQ( bool( i ), expected != all.end() );
      ASSERT_EQ( bool( checked ), bool( i ) );
      if ( i ) {
         EXPECT_TRUE( i.key() == *expected );
         EXPECT_TRUE( checked.key() == *expected );
      }
   }
}

TYPED_TEST( KeyedCollection, IsEmptiedByAWalkThatDeletesAsItGoes ) {
   this->insertMany();
   unsigned visited = 0;
   for ( auto i = this->collection.iterator(); i; i.advance() ) {
      const auto key = i.key();
      EXPECT_TRUE( this->collection.deleteMember( key ) );
      EXPECT_TRUE( i.key() == key );
      ++visited;
   }
   EXPECT_EQ( visited, this->kMany );
   EXPECT_TRUE( this->collection.empty() );
}

TYPED_TEST( KeyedCollection, IsEmptiedByAWalkThatDeletesWhereItStands ) {
   this->insertMany();
   const auto staying = this->collection.iterator();
   const auto first = staying.key();
   unsigned visited = 0;
   for ( auto i = this->collection.iterator(); i; ) {
      const auto key = i.key();
      this->collection.deleteAt( i );
      EXPECT_FALSE( this->collection.lookup( key ) );
      EXPECT_TRUE( !i || this->collection.isBefore( key, i.key() ) );
      ++visited;
   }
   EXPECT_EQ( visited, this->kMany );
   EXPECT_TRUE( this->collection.empty() );
   EXPECT_TRUE( staying.key() == first );
}

TYPED_TEST( KeyedCollection, DeletingUnderAnIteratorLeavesTheElementToIt ) {
   if constexpr ( TypeParam::Collection::hasValue ) {
      for ( unsigned n = 0; n < this->kMany; ++n ) { this->insert( n, 7 ); }
      unsigned visited = 0;
      for ( auto i = this->collection.iterator(); i; i.advance() ) {
         const auto key = i.key();
         const auto value = i.value();
         EXPECT_TRUE( this->collection.deleteUnder( i ) );
         EXPECT_FALSE( this->collection.lookup( key ) );
         EXPECT_TRUE( i.key() == key );
         EXPECT_TRUE( i.value() == value );
         const auto version = this->collection.version();
         EXPECT_FALSE( this->collection.deleteUnder( i ) ) << "gone already";
         EXPECT_EQ( this->collection.version(), version );
         ++visited;
      }
      EXPECT_EQ( visited, this->kMany );
      EXPECT_TRUE( this->collection.empty() );
      EXPECT_FALSE( this->collection.deleteUnder( this->collection.iterator() ) );
   }
}

TYPED_TEST( KeyedCollection, DeletesWhatIsUnwantedAndNothingElse ) {
   const auto all = []( const auto & ) { return true; };
   if constexpr ( requires { this->collection.deleteIf( all ); } ) {
      this->insertMany();
      const auto staying = this->keys( 0, this->kMany / 3 );
      const auto lost = this->collection.iteratorFrom( this->key( this->kMany - 1 ) );
      this->collection.deleteIf( [&]( const auto & key ) { return !staying.contains( key ); } );
      EXPECT_TRUE( this->same( this->keysOf( this->collection ), staying ) );
      EXPECT_TRUE( lost.key() == this->key( this->kMany - 1 ) );
      const auto version = this->collection.version();
      this->collection.deleteIf( []( const auto & ) { return false; } );
      EXPECT_EQ( this->collection.version(), version );
      this->collection.deleteIf( all );
      EXPECT_TRUE( this->collection.empty() );
      this->collection.deleteIf( all );
      EXPECT_TRUE( this->collection.empty() );
   }
}

TYPED_TEST( KeyedCollection, DeletingWhereAnIteratorStandsIsDeletingItsKeyWhateverWasDoneToThat ) {
   this->insertMany( 100 );
   auto i = this->collection.iterator();
   const auto version = [this] { return this->collection.version(); };
   this->collection.deleteMember( typename TestFixture::Key( i.key() ) );
   auto before = version();
   this->collection.deleteAt( i ); // gone already
   EXPECT_EQ( version(), before );
   const auto key = i.key();
   this->collection.deleteMember( key );
   for ( unsigned n = 0; n < 100; ++n ) { this->insert( n ); } // back again
   this->collection.deleteAt( i );
   EXPECT_FALSE( this->collection.lookup( key ) );
   while ( i ) { i.advance(); }
   before = version();
   this->collection.deleteAt( i );
   EXPECT_EQ( version(), before );
   EXPECT_EQ( this->collection.size(), 99u );
}

TYPED_TEST( KeyedCollection, AWalkMissesNothingWhileTheCollectionGrowsUnderIt ) {
   this->insertMany( 100 );
   auto seen = this->keys( 0, 0 );
   unsigned next = 100;
   for ( auto i = this->collection.iterator(); i; i.advance() ) {
      EXPECT_TRUE( seen.insert( i.key() ).second );
      for ( unsigned end = std::min( next + 20, this->kMany ); next < end; ++next ) {
         this->insert( next );
      }
   }
   for ( unsigned n = 0; n < 100; ++n ) { EXPECT_TRUE( seen.contains( this->key( n ) ) ); }
}

TYPED_TEST( KeyedCollection, TwoIteratorsOnOneDeletedElementBothKeepIt ) {
   this->insertMany( 100 );
   auto one = this->collection.iterator();
   auto two = one;
   const auto first = one.key();
   this->collection.deleteMember( first );
   one.advance();
   EXPECT_TRUE( two.key() == first );
   two.advance();
   EXPECT_TRUE( one.key() == two.key() );
}

TYPED_TEST( KeyedCollection, AnIteratorOutlivesItsCollection ) {
   auto other = std::make_unique< typename TypeParam::Collection >();
   this->insert( *other, 3 );
   auto i = other->iterator();
   other.reset();
   ASSERT_TRUE( i );
   EXPECT_TRUE( i.key() == this->key( 3 ) );
   i.advance();
   EXPECT_FALSE( i );
}

TYPED_TEST( KeyedCollection, RangesAreDeletedAtPresentAndAbsentKeys ) {
   for ( const unsigned step : { 1u, 2u } ) {
      this->collection.memberDelAll();
      auto expected = this->keys( 0, 0 );
      for ( unsigned n = 0; n < this->kMany; n += step ) {
         this->insert( n );
         expected.insert( this->key( n ) );
      }
      const auto from =
         std::min( this->key( 701 ), this->key( 1201 ), typename TestFixture::Before() );
      const auto to =
         std::max( this->key( 701 ), this->key( 1201 ), typename TestFixture::Before() );
      this->collection.deleteBetween( from, to );
      expected.erase( expected.lower_bound( from ), expected.lower_bound( to ) );
      EXPECT_TRUE( this->same( this->keysOf( this->collection ), expected ) );
      this->collection.deleteBetween( to, from );
      EXPECT_EQ( this->collection.size(), expected.size() );

      this->collection.deleteUpTo( this->key( 99 ) );
      expected.erase( expected.begin(), expected.lower_bound( this->key( 99 ) ) );
      EXPECT_TRUE( this->same( this->keysOf( this->collection ), expected ) );

      this->collection.deleteFrom( this->key( 333 ) );
      expected.erase( expected.lower_bound( this->key( 333 ) ), expected.end() );
      EXPECT_TRUE( this->same( this->keysOf( this->collection ), expected ) );
   }
}

TYPED_TEST( KeyedCollection, MovesOutWholeAndIsEmptyAfterwards ) {
   this->insertMany();
   const auto out = this->collection.moveOut();
   EXPECT_TRUE( this->collection.empty() );
   EXPECT_TRUE( this->same( this->keysOf( out ), this->keys( 0, this->kMany ) ) );
   this->insert( 1 );
   EXPECT_EQ( this->collection.size(), 1u );
}

TYPED_TEST( KeyedCollection, MergingBackUnitesBothWhicheverIsLarger ) {
   for ( const unsigned ours : { 10u, 1900u } ) {
      this->collection.memberDelAll();
      typename TypeParam::Collection other;
      for ( unsigned n = 0; n < ours; ++n ) { this->insert( n ); }
      for ( unsigned n = ours / 2; n < this->kMany; ++n ) { this->insert( other, n ); }
      this->collection.mergeBack( std::move( other ) );
      EXPECT_TRUE( other.empty() );
      EXPECT_TRUE( this->same( this->keysOf( this->collection ), this->keys( 0, this->kMany ) ) );
   }
}

TYPED_TEST( KeyedCollection, TheVersionTellsEveryChange ) {
   auto last = this->collection.version();
   const auto changed = [&] { return std::exchange( last, this->collection.version() ) != last; };
   this->insert( 1 );
   EXPECT_TRUE( changed() );
   this->collection.lookup( this->key( 1 ) );
   this->collection.deleteMember( this->key( 2 ) );
   EXPECT_FALSE( changed() );
   this->collection.deleteMember( this->key( 1 ) );
   EXPECT_TRUE( changed() );
   this->insert( 1 );
   EXPECT_TRUE( changed() );
   this->collection.deleteFrom( this->key( 1 ) );
   EXPECT_TRUE( changed() );
   this->insert( 1 );
   EXPECT_TRUE( changed() );
   auto out = this->collection.moveOut();
   EXPECT_TRUE( changed() );
   this->collection.mergeBack( std::move( out ) );
   EXPECT_TRUE( changed() );
   this->collection.memberDelAll();
   EXPECT_TRUE( changed() );
}

TYPED_TEST( KeyedCollection, ACheckedIteratorAssertsThatNothingChangedBehindIt ) {
   Lumo::ThrowingAssertionHandler assertions;
   this->insertMany( 100 );
   auto i = this->collection.checkedIterator();
   i.advance();
   this->insert( 100 );
   EXPECT_THROW( i.advance(), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().back().condition(), "version_ == hashMap_->version()" );
}

TYPED_TEST( KeyedCollection, AValueIsReplacedOnlyWhereTheKeyIsPresent ) {
   if constexpr ( TypeParam::Collection::hasValue ) {
      this->insert( 1, 1 );
      EXPECT_TRUE( this->collection.update( this->key( 1 ), TypeParam::value( 1, 2 ) ) );
      EXPECT_FALSE( this->collection.update( this->key( 2 ), TypeParam::value( 2, 2 ) ) );
      EXPECT_EQ( this->collection.size(), 1u );
      EXPECT_EQ( this->collection.lookup( this->key( 1 ) )->value(), TypeParam::value( 1, 2 ) );
   }
}

TYPED_TEST( KeyedCollection, AnEqualValueIsNoChangeAndAnotherOneHandsBackTheOldOne ) {
   if constexpr ( TypeParam::Collection::hasValue ) {
      const auto key = this->key( 1 );
      const auto first = TypeParam::value( 1, 7 ), second = TypeParam::value( 1, 8 );
      std::optional< std::decay_t< decltype( first ) > > previous;
      EXPECT_TRUE( this->collection.memberIsUnlessEqual( key, first, &previous ) );
      EXPECT_FALSE( previous );
      const auto version = this->collection.version();
      EXPECT_FALSE( this->collection.memberIsUnlessEqual( key, first, &previous ) );
      EXPECT_EQ( this->collection.version(), version );
      EXPECT_FALSE( previous );
      EXPECT_TRUE( this->collection.memberIsUnlessEqual( key, second, &previous ) );
      EXPECT_NE( this->collection.version(), version );
      EXPECT_EQ( previous, first );
      EXPECT_EQ( this->collection.lookup( key )->value(), second );
      EXPECT_TRUE( this->collection.memberIsUnlessEqual( key, first ) );
      EXPECT_EQ( this->collection.size(), 1u );
   }
}

TYPED_TEST( KeyedCollection, TakingAMemberHandsBackItsValueAndLeavesIteratorsTheirs ) {
   if constexpr ( TypeParam::Collection::hasValue ) {
      this->insert( 1, 7 );
      const auto i = this->collection.iterator();
      EXPECT_EQ( this->collection.takeMember( this->key( 1 ) ), TypeParam::value( 1, 7 ) );
      EXPECT_EQ( this->collection.takeMember( this->key( 1 ) ), std::nullopt );
      EXPECT_EQ( i.value(), TypeParam::value( 1, 7 ) );
   }
}

// What concerns single types.

TEST( HashMap2018, PresentKeysWinWhenMergingBack ) {
   for ( const unsigned ours : { 1u, 100u } ) {
      HashMap2018< unsigned, std::string > map;
      HashMap2018< unsigned, std::string > other;
      for ( unsigned n = 0; n < ours; ++n ) { map.memberIs( n, "ours" ); }
      for ( unsigned n = 0; n < 50; ++n ) { other.memberIs( n, "theirs" ); }
      auto i = map.iteratorFrom( 0u );
      map.mergeBack( std::move( other ) );
      EXPECT_EQ( map.lookup( 0u )->value(), "ours" );
      EXPECT_EQ( map.lookup( 49u )->value(), ours > 49 ? "ours" : "theirs" );
      EXPECT_EQ( &*i, map.lookup( i.key() ) );
   }
}

TEST( HashMap2018, NewMemberReturnsTheElementOrADefaultOne ) {
   HashMap2018< int, std::string > map;
   EXPECT_EQ( map.newMember( 1 ).value(), "" );
   EXPECT_FALSE( map.newMember( 1, "not taken" ).inserted );
   map.newMember( 1 ).value() = "one";
   EXPECT_EQ( map.newMember( 1 ).value(), "one" );
   EXPECT_EQ( map.size(), 1u );
}

TEST( HashMap2018, NewMemberMakesAValueOnlyWhereTheKeyIsAbsent ) {
   Records::Collection hashed;
   DenseRecords::Collection dense;
   const auto check = []( auto & records, const auto & key, const auto & value ) {
      int made = 0;
      const auto make = [&] {
         ++made;
         return value;
      };
      const auto first = records.newMember( key, make );
      EXPECT_TRUE( first.inserted );
      EXPECT_TRUE( first.node->value() == value );
      EXPECT_FALSE( records.newMember( key, make ).inserted );
      EXPECT_EQ( made, 1 );
      EXPECT_EQ( records.version(), 1u );
   };
   check( hashed, Records::key( 1 ), Records::value( 1, 0 ) );
   check( dense, DenseRecords::key( 1 ), DenseRecords::value( 1, 0 ) );
}

TEST( HashMap2018, LooksUpTextWithoutBuildingAKey ) {
   HashMap2018< std::string, int > map;
   map.memberIs( "a name that is too long for the string itself", 1 );
   EXPECT_TRUE( map.lookup( std::string_view( "a name that is too long for the string itself" ) ) );
   EXPECT_TRUE(
      map.deleteMember( std::string_view( "a name that is too long for the string itself" ) ) );
}

TEST( HashMap2018, AValueUnderAnotherKeyIsRefusedBeforeAnythingChanges ) {
   Lumo::ThrowingAssertionHandler assertions;
   Records::Collection hashed;
   DenseRecords::Collection dense;
   EXPECT_THROW( hashed.memberIs( 1, { 2, "" } ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().back().condition(), "fwkKey() == KeyFunktor()( _value )" );
   EXPECT_THROW( dense.memberIs( 1, { 2, "" } ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().back().condition(), "fwkKey() == KeyFunktor()( _value )" );
   EXPECT_TRUE( hashed.empty() );
   EXPECT_TRUE( dense.empty() );
}

/// A value whose destructor deletes the element with the next number.
struct Disrupter;
using Disrupted = HashMap2018< unsigned, std::shared_ptr< Disrupter > >;
struct Disrupter {
   Disrupted * map;
   unsigned next;
   ~Disrupter() { map->deleteMember( next ); }
};

TEST( HashMap2018, ADestructorMayDeleteFurtherElements ) {
   Disrupted map;
   for ( unsigned n = 0; n < 300; ++n ) {
      map.memberIs( n, std::make_shared< Disrupter >( Disrupter{ &map, 1000 } ) );
      map.lookup( n )->value()->next = n + 1;
   }
   map.deleteMember( 200u );
   EXPECT_EQ( map.size(), 200u );
   map.update( 150u, nullptr );
   EXPECT_EQ( map.size(), 151u );
   map.deleteFrom( map.iterator().key() );
   EXPECT_TRUE( map.empty() );
}

TEST( HashMap2018, ADestructorMayDeleteFurtherElementsOfThoseThatAreUnwanted ) {
   Disrupted map;
   for ( unsigned n = 0; n < 2500; ++n ) {
      map.memberIs( n, std::make_shared< Disrupter >( Disrupter{ &map, 2 * n + 1 } ) );
   }
   map.deleteIf( []( unsigned key ) { return key % 2 == 0 && key < 1000; } );
   for ( unsigned n = 0; n < 1000; n += 2 ) { // and what it takes along
      EXPECT_FALSE( map.lookup( n ) );
      for ( unsigned next = 2 * n + 1; next < 2500; next = 2 * next + 1 ) {
         EXPECT_FALSE( map.lookup( next ) );
      }
   }
   EXPECT_TRUE( map.lookup( 1U << 10 ) );
}

TEST( HashMap2018, KeepsValuesThatCannotBeCopied ) {
   HashMap2018< int, std::unique_ptr< int > > map;
   map.memberIs( 1, std::make_unique< int >( 10 ) );
   auto i = map.iterator();
   auto out = map.moveOut();
   EXPECT_EQ( i.key(), 1 ); // the value went with the collection
   EXPECT_EQ( *out.takeMember( 1 ).value(), 10 );
   i.advance();
   EXPECT_FALSE( i );
}

/// Keys longer than a word, so that comparing with a slot that holds nothing cannot go unnoticed.
Lumo::String longName( unsigned n ) {
   return "a class name of many letters " + std::to_string( n );
}

TEST( HashMap2018, FindsNothingInAnEmptyOneWhateverTheHash ) {
   const HashMap2018< Lumo::String, std::uint64_t > map;
   for ( unsigned n = 0; n < 5000; ++n ) { ASSERT_EQ( map.lookup( longName( n ) ), nullptr ) << n; }
}

TEST( HashMap2018, FindsNothingWhereEverythingWasDeleted ) {
   HashMap2018< Lumo::String, std::uint64_t > map;
   for ( unsigned n = 0; n < 5000; ++n ) { map.memberIs( longName( n ), n ); }
   for ( unsigned n = 0; n < 5000; ++n ) {
      map.deleteMember( longName( n ) );
      ASSERT_EQ( map.lookup( longName( n ) ), nullptr ) << n;
   }
   for ( unsigned n = 0; n < 10000; ++n ) {
      ASSERT_EQ( map.lookup( longName( n ) ), nullptr ) << n;
   }
}

TEST( HashMap2018, AnEmptyOneIsFourWords ) {
   EXPECT_LE( sizeof( HashMap2018< int, int > ), 4 * sizeof( void * ) );
}

TEST( DenseMap2018, HoldsTheLargestNumberAndEndsBehindIt ) {
   const std::uint64_t last = ~std::uint64_t{ 0 };
   for ( const unsigned others : { 1u, 100u } ) { // few elements, and a tree of them
      DenseMap2018< int > map;
      map.memberIs( last, 1 );
      for ( unsigned n = 0; n < others; ++n ) { map.memberIs( n, 2 ); }
      auto i = map.iteratorFrom( last );
      EXPECT_EQ( i.key(), last );
      i.advance();
      EXPECT_FALSE( i );
      map.deleteFrom( last );
      EXPECT_EQ( map.size(), others );
      map.deleteUpTo( last );
      EXPECT_TRUE( map.empty() );
   }
}

TEST( DenseMap2018, IteratorsGoAlongWhenFewElementsBecomeMany ) {
   DenseMap2018< Lumo::String > map;
   map.memberIs( 500, "stays" );
   map.memberIs( 900, "last" );
   auto standing = map.iteratorFrom( 500 );
   auto lost = map.iteratorFrom( 900 );
   map.deleteMember( 900 );
   for ( std::uint64_t n = 0; n < 200; ++n ) { map.memberIs( 10 * n + 1, "crowd" ); }
   EXPECT_EQ( &*standing, map.lookup( 500 ) );
   standing.advance();
   EXPECT_EQ( standing.key(), 501u );
   EXPECT_EQ( lost.value(), "last" );
   lost.advance();
   EXPECT_EQ( lost.key(), 901u );
   map.memberDelAll();
   EXPECT_EQ( standing.value(), "crowd" );
   map.memberIs( 600, "alone" );
   standing.advance();
   EXPECT_EQ( standing.key(), 600u );
}

TEST( DenseMap2018, IsInTheOrderOfTheNumbers ) {
   DenseMap2018<> set;
   for ( const std::uint64_t n : { 70u, 3u, 1u << 20, 64u } ) { set.memberIs( n ); }
   std::vector< std::uint64_t > seen;
   for ( const auto & node : set ) { seen.push_back( node.fwkKey() ); }
   EXPECT_EQ( seen, ( std::vector< std::uint64_t >{ 3, 64, 70, 1u << 20 } ) );
}

} // namespace
} // namespace Quon::test
