// Setting, deleting and the resync bracket of both routing configuration managers.

#include "VeloSdkRpc/test/RoutingMgrs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/EntityWatcher.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr std::uint32_t A = 1, B = 2, C = 3;

template< class Mgr >
class Resync : public testing::Test {
 protected:
   Mgr mgr;
};

using BothMgrs = testing::Types< LinkWeights, ViaOverrides >;
TYPED_TEST_SUITE( Resync, BothMgrs );

TYPED_TEST( Resync, SettingTwiceLeavesOneEntryWithTheLastWeight ) {
   this->mgr.set( A, 1 );
   this->mgr.set( A, 2 );
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 2 ) ) );
}

TYPED_TEST( Resync, DeletingRemovesOneEntryAndAnAbsentOneIsNoMatter ) {
   this->mgr.set( A, 1 );
   this->mgr.set( B, 2 );
   this->mgr.del( A );
   this->mgr.del( A );
   this->mgr.del( C );
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( B, 2 ) ) );
}

TYPED_TEST( Resync, WhatWasSetInTheBracketStaysAndEverythingElseGoes ) {
   this->mgr.set( A, 5 );
   this->mgr.set( B, 5 );
   this->mgr.setDirectly( C, 5 );
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 1 ) ) );
}

TYPED_TEST( Resync, WhatWasSetAgainWithTheSameWeightStays ) {
   this->mgr.set( A, 1 );
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 1 ) ) );
}

TYPED_TEST( Resync, WhatWasDeletedInTheBracketIsGone ) {
   this->mgr.set( A, 5 );
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.del( A );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), IsEmpty() );
}

TYPED_TEST( Resync, WhatWasDeletedByOthersAndIsThereAgainStaysIfItWasSent ) {
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.delDirectly( A );
   this->mgr.setDirectly( A, 2 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 2 ) ) );
}

TYPED_TEST( Resync, WhatWasDeletedAndIsThereAgainByOthersGoes ) {
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.del( A );
   this->mgr.setDirectly( A, 2 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), IsEmpty() );
}

TYPED_TEST( Resync, AnEmptyBracketRemovesEverything ) {
   this->mgr.set( A, 1 );
   this->mgr.set( B, 2 );
   this->mgr.init();
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), IsEmpty() );
}

TYPED_TEST( Resync, NothingIsRemovedBeforeTheBracketIsComplete ) {
   this->mgr.set( A, 1 );
   this->mgr.init();
   this->mgr.set( B, 2 );
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 1 ), Pair( B, 2 ) ) );
}

TYPED_TEST( Resync, BeginningAgainCountsNothingAsSent ) {
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.init();
   this->mgr.set( B, 2 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( B, 2 ) ) );
}

TYPED_TEST( Resync, OneBracketKnowsNothingOfTheOneBefore ) {
   this->mgr.init();
   this->mgr.set( A, 1 );
   this->mgr.complete();
   this->mgr.set( B, 2 );
   this->mgr.init();
   this->mgr.set( C, 3 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( C, 3 ) ) );
}

TYPED_TEST( Resync, CompletingWithoutABracketIsAnErrorAndChangesNothing ) {
   this->mgr.set( A, 1 );
   for ( const bool afterABracket : { false, true } ) {
      if ( afterABracket ) {
         this->mgr.init();
         this->mgr.set( A, 1 );
         this->mgr.complete();
      }
      Quon::test::EntityWatcher watcher( this->mgr.entity() );
      EXPECT_THAT( [this] { this->mgr.complete(); },
                   testing::ThrowsMessage< velo::configuration_error >(
                      "Resync mode was not initialized; cannot complete resync" ) );
      EXPECT_THROW( this->mgr.complete(), velo::error );
      EXPECT_THROW( this->mgr.complete(), std::exception );
      EXPECT_THAT( watcher.told, IsEmpty() );
      EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 1 ) ) );
   }
}

TYPED_TEST( Resync, ABracketIsStillPossibleAfterTheError ) {
   this->mgr.set( A, 1 );
   EXPECT_THROW( this->mgr.complete(), velo::configuration_error );
   this->mgr.init();
   this->mgr.set( B, 2 );
   this->mgr.complete();
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( B, 2 ) ) );
}

TYPED_TEST( Resync, OnlyWhatIsRemovedIsPublishedAtTheEnd ) {
   this->mgr.set( A, 1 );
   this->mgr.set( B, 2 );
   this->mgr.init();
   this->mgr.set( A, 1 );
   Quon::test::EntityWatcher watcher( this->mgr.entity() );
   watcher.then = [this]( const Lumo::Notification & change ) {
      EXPECT_EQ( this->mgr.number( change.key ), B );
      EXPECT_EQ( change.newValue, nullptr );
   };
   this->mgr.complete();
   EXPECT_EQ( watcher.told.size(), 1U );
}

TYPED_TEST( Resync, TheEndOfTheManagerWritesNothing ) {
   this->mgr.set( A, 1 );
   this->mgr.init();
   this->mgr.set( B, 2 );
   const Quon::test::EntityWatcher watcher( this->mgr.entity() );
   this->mgr.destroyMgr();
   EXPECT_THAT( watcher.told, IsEmpty() );
   EXPECT_THAT( this->mgr.contents(), ElementsAre( Pair( A, 1 ), Pair( B, 2 ) ) );
}

/// Deletes while it walks, all the way: every second of `entries` is sent again.
template< class Mgr >
void resyncOfMany( Mgr & mgr, std::uint32_t entries ) {
   for ( std::uint32_t n = 0; n < entries; ++n ) { mgr.set( n, n ); }
   mgr.init();
   for ( std::uint32_t n = 0; n < entries; n += 2 ) { mgr.set( n, n + 1 ); }
   mgr.complete();
   EXPECT_EQ( mgr.size(), entries / 2 );
   std::uint32_t expected = 0;
   for ( const auto & [n, weight] : mgr.contents() ) {
      ASSERT_EQ( n, expected );
      ASSERT_EQ( weight, n + 1 );
      expected += 2;
   }
   mgr.init();
   mgr.complete();
   EXPECT_EQ( mgr.size(), 0U );
}

TEST( ResyncOfMany, AMillionLinkWeights ) {
   LinkWeights mgr;
   resyncOfMany( mgr, 1'000'000 );
}

TEST( ResyncOfMany, AMillionVias ) {
   ViaOverrides mgr;
   resyncOfMany( mgr, 1'000'000 );
}

} // namespace
} // namespace VeloSdkRpc::test
