#include "agent/CounterChanges.h"
#include "agent/test/AppliedChanges.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

namespace VeloAgent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST( CounterChanges, EqualSnapshotsNeedNothing ) {
   const CounterSnapshot snapshot = { { "p", { { "c", { 1, 2 } } } } };
   EXPECT_THAT( changesBetween( snapshot, snapshot ), IsEmpty() );
   EXPECT_THAT( changesBetween( {}, {} ), IsEmpty() );
}

TEST( CounterChanges, OnlyWhatChangedIsSetEvenBackwards ) {
   EXPECT_THAT( changesBetween( { { "p", { { "a", { 5, 50 } }, { "b", { 1, 1 } } } } },
                                { { "p", { { "a", { 3, 30 } }, { "b", { 1, 1 } } } } } ),
                ElementsAre( CounterChange( CountersSet{ "p", "a", { 3, 30 } } ) ) );
}

TEST( CounterChanges, AVanishedCounterRemovesItsClass ) {
   EXPECT_THAT(
      changesBetween( { { "p", { { "a", {} }, { "b", {} } } } }, { { "p", { { "b", {} } } } } ),
      ElementsAre( CounterChange( ClassRemoved{ "p", "a" } ) ) );
}

TEST( CounterChanges, AVanishedPolicyMapIsOneStep ) {
   EXPECT_THAT( changesBetween( { { "p", { { "a", {} }, { "b", {} } } }, { "q", { { "a", {} } } } },
                                { { "q", { { "a", {} } } } } ),
                ElementsAre( CounterChange( PolicyRemoved{ "p" } ) ) );
}

TEST( CounterChanges, ANewClassIsSetEvenToZero ) {
   EXPECT_THAT( changesBetween( {}, { { "p", { { "a", {} } } } } ),
                ElementsAre( CounterChange( CountersSet{ "p", "a", {} } ) ) );
}

/// Few names and small numbers, so that two snapshots have much in common.
CounterSnapshot smallSnapshot() {
   using namespace rc;
   CounterSnapshot snapshot;
   const auto entries = *gen::container< std::vector< std::tuple< char, char, int > > >(
      gen::tuple( gen::inRange( 'a', 'e' ), gen::inRange( 'a', 'e' ), gen::inRange( 0, 3 ) ) );
   for ( const auto & [policy, cls, n] : entries ) {
      const auto count = static_cast< std::uint64_t >( n );
      snapshot[std::string( 1, policy )][std::string( 1, cls )] = { count, count };
   }
   return snapshot;
}

RC_GTEST_PROP( CounterChanges, AppliedToTheOldTheyGiveTheNew, () ) {
   const CounterSnapshot before = smallSnapshot();
   const CounterSnapshot after = smallSnapshot();
   RC_ASSERT( applied( changesBetween( before, after ), before ) == after );
}

} // namespace
} // namespace VeloAgent
