// Who is told of a removal at the end of a resync may do anything: these do, at the first.

#include "VeloSdkRpc/test/RoutingMgrs.h"

#include <functional>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/EntityWatcher.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// 0 to 99 are there, the first ten of them are sent in the bracket.
template< class Mgr >
class ResyncReentry : public testing::Test {
 protected:
   static constexpr std::uint32_t kSent = 10, kAll = 100;

   ResyncReentry() {
      for ( std::uint32_t n = 0; n < kAll; ++n ) { mgr.set( n, n ); }
      mgr.init();
      for ( std::uint32_t n = 0; n < kSent; ++n ) { mgr.set( n, n ); }
   }

   /// `work` is done when the first removal is told, with the number of what was removed.
   void atTheFirstRemoval( const std::function< void( std::uint32_t ) > & work ) {
      watcher_.then = [this, work]( const Lumo::Notification & change ) {
         watcher_.then = nullptr;
         work( mgr.number( change.key ) );
      };
   }

   /// `work` is done whenever a change is told.
   void atEveryChange( const std::function< void( std::uint32_t ) > & work ) {
      watcher_.then = [this, work]( const Lumo::Notification & change ) {
         work( mgr.number( change.key ) );
      };
   }

   static Weights whatWasSentAnd( const Weights & more = {} ) {
      Weights all = more;
      for ( std::uint32_t n = 0; n < kSent; ++n ) { all.emplace( n, n ); }
      return all;
   }

   Mgr mgr;

 private:
   Quon::test::EntityWatcher watcher_{ mgr.entity() };
};

using BothMgrs = testing::Types< LinkWeights, ViaOverrides >;
TYPED_TEST_SUITE( ResyncReentry, BothMgrs );

TYPED_TEST( ResyncReentry, WhatIsSetStaysWhetherItsTurnIsOverOrNot ) {
   std::uint32_t removed = 0;
   this->atTheFirstRemoval( [&]( std::uint32_t n ) {
      removed = n;
      this->mgr.set( n, 1000 );
      for ( std::uint32_t late = 200; late < 300; ++late ) { this->mgr.set( late, late ); }
   } );
   this->mgr.complete();
   Weights expected = this->whatWasSentAnd( { { removed, 1000 } } );
   for ( std::uint32_t late = 200; late < 300; ++late ) { expected.emplace( late, late ); }
   EXPECT_EQ( this->mgr.contents(), expected );
}

TYPED_TEST( ResyncReentry, WhatIsDeletedIsGone ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      for ( std::uint32_t n = 0; n < this->kAll; ++n ) { this->mgr.del( n ); }
   } );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), IsEmpty() );
}

TYPED_TEST( ResyncReentry, WhatOthersDeleteIsSkipped ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      for ( std::uint32_t n = 0; n < this->kAll; ++n ) { this->mgr.delDirectly( n ); }
   } );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), IsEmpty() );
}

TYPED_TEST( ResyncReentry, CompletingEndsTheBracketOnce ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      this->mgr.complete();
      EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd() );
      EXPECT_THROW( this->mgr.complete(), velo::configuration_error );
      this->mgr.set( 500, 5 );
   } );
   this->mgr.complete();
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd( { { 500, 5 } } ) );
}

TYPED_TEST( ResyncReentry, ABracketThatIsBegunAfterCompletingIsAnotherOne ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      this->mgr.complete();
      this->mgr.init();
      this->mgr.set( 500, 5 );
   } );
   this->mgr.complete();
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd( { { 500, 5 } } ) );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( 500, 5 ) ) );
}

TYPED_TEST( ResyncReentry, WhatAnotherManagerDoesMeanwhileEndsNothing ) {
   TypeParam other;
   other.set( 1, 1 );
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      other.init();
      other.set( 2, 2 );
      other.complete();
      other.destroyMgr();
   } );
   this->mgr.complete();
   EXPECT_THAT( other.contents(), ElementsAre( Pair( 2, 2 ) ) );
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd() );
   EXPECT_THROW( this->mgr.complete(), velo::configuration_error );
}

TYPED_TEST( ResyncReentry, TheManagerMayBeDestroyed ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) { this->mgr.destroyMgr(); } );
   this->mgr.complete();
   EXPECT_EQ( this->mgr.size(), this->kAll - 1 ) << "the pass ends with its manager";
}

TYPED_TEST( ResyncReentry, TheManagerMayBeDestroyedByWhoeverIsToldOfOneChange ) {
   this->mgr.complete();
   this->atTheFirstRemoval( [&]( std::uint32_t ) { this->mgr.destroyMgr(); } );
   this->mgr.del( 3 );
   EXPECT_EQ( this->mgr.size(), this->kSent - 1 );
}

TYPED_TEST( ResyncReentry, OfManySubscribersThatThrowTheFirstOneIsHeard ) {
   unsigned removals = 0;
   this->atEveryChange(
      [&]( std::uint32_t ) { throw std::runtime_error( std::to_string( ++removals ) ); } );
   EXPECT_THAT( [&] { this->mgr.complete(); },
                testing::ThrowsMessage< std::runtime_error >( "1" ) );
   EXPECT_EQ( removals, this->kAll - this->kSent );
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd() );
}

TYPED_TEST( ResyncReentry, WhatASubscriberThrewAtCountsAsSentNevertheless ) {
   this->atEveryChange( []( std::uint32_t ) { throw std::runtime_error( "broken" ); } );
   EXPECT_THROW( this->mgr.set( 50, 51 ), std::runtime_error );
   EXPECT_THROW( this->mgr.complete(), std::runtime_error );
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd( { { 50, 51 } } ) );
}

TYPED_TEST( ResyncReentry, BeginningAgainCountsNothingAsSentFromThereOn ) {
   this->atTheFirstRemoval( [&]( std::uint32_t ) {
      this->mgr.init();
      for ( std::uint32_t n = 0; n < this->kAll; ++n ) { this->mgr.set( n, 7 ); }
      this->mgr.del( 0 );
   } );
   this->mgr.complete();
   EXPECT_EQ( this->mgr.size(), this->kAll - 1 );
   EXPECT_THROW( this->mgr.complete(), velo::configuration_error );
}

TYPED_TEST( ResyncReentry, ASubscriberThatThrowsCostsNothingButItsException ) {
   this->atTheFirstRemoval( []( std::uint32_t ) { throw std::runtime_error( "broken" ); } );
   EXPECT_THAT( [&] { this->mgr.complete(); },
                testing::ThrowsMessage< std::runtime_error >( "broken" ) );
   EXPECT_EQ( this->mgr.contents(), this->whatWasSentAnd() );
   EXPECT_THROW( this->mgr.complete(), velo::configuration_error ) << "the bracket is over";
}

TYPED_TEST( ResyncReentry, OutsideOfABracketASubscriberMayUndoWhatItIsTold ) {
   this->mgr.complete();
   this->atTheFirstRemoval( [&]( std::uint32_t n ) { this->mgr.set( n, 77 ); } );
   this->mgr.del( 3 );
   EXPECT_THAT( this->mgr.contents(), testing::Contains( Pair( 3, 77 ) ) );
}

} // namespace
} // namespace VeloSdkRpc::test
