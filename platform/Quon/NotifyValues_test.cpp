#include "Quon/NotifyValues.h"

#include <functional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Lumo.h"

namespace Quon::test {
namespace {

using testing::ElementsAre;

constexpr short kCount = 3, kOther = 4;

/// Notes what `getNotifyValues` says of each change: -1 for an absent value.
class PairWatcher {
 public:
   explicit PairWatcher( Lumo::Publisher & publisher ) { publisher.subscriberAdd( slot_ ); }

   bool isZombie() const { return false; }

   std::vector< std::pair< int, int > > seen;
   std::function< void() > meanwhile;

 private:
   void changed( Lumo::Publisher * publisher, Lumo::Subscriber *, short attributeId, const void *,
                 const void * ) {
      if ( attributeId != kCount ) { return; }
      if ( const auto nested = std::exchange( meanwhile, nullptr ) ) { nested(); }
      const auto [previous, current] =
         Impl::getNotifyValues( *publisher, kCount, std::type_identity< int >() );
      seen.emplace_back( previous ? *previous : -1, current ? *current : -1 );
   }

   Lumo::MemberSubscriber< PairWatcher, &PairWatcher::changed > slot_{ this };
};

class NotifyValuesTest : public testing::Test {
 protected:
   const int one = 1, two = 2, three = 3;
   Lumo::Publisher publisher;
   PairWatcher watcher{ publisher };
};

TEST_F( NotifyValuesTest, AnAddedAChangedAndARemovedElementShowWhatTheyWereAndAre ) {
   publisher.publishChange( kCount, nullptr, nullptr, &one );
   publisher.publishChange( kCount, nullptr, &one, &two );
   publisher.publishChange( kCount, nullptr, &two, nullptr );
   EXPECT_THAT( watcher.seen,
                ElementsAre( std::pair( -1, 1 ), std::pair( 1, 2 ), std::pair( 2, -1 ) ) );
}

TEST_F( NotifyValuesTest, NestedDispatchesEachSeeTheirOwnChange ) {
   watcher.meanwhile = [this] { publisher.publishChange( kCount, nullptr, &two, &three ); };
   publisher.publishChange( kCount, nullptr, &one, &two );
   EXPECT_THAT( watcher.seen, ElementsAre( std::pair( 2, 3 ), std::pair( 1, 2 ) ) );
}

TEST_F( NotifyValuesTest, ANestedChangeOfAnotherAttributeDoesNotHideTheOuterOne ) {
   Lumo::Publisher elsewhere;
   PairWatcher there( elsewhere );
   there.meanwhile = [this] {
      const auto [previous, current] =
         Impl::getNotifyValues( publisher, kCount, std::type_identity< int >() );
      EXPECT_EQ( previous, &one );
      EXPECT_EQ( current, &two );
   };
   watcher.meanwhile = [&] {
      publisher.publishChange( kOther, nullptr, &three, &three );
      elsewhere.publishChange( kCount, nullptr, nullptr, &three );
   };
   publisher.publishChange( kCount, nullptr, &one, &two );
   EXPECT_THAT( there.seen, ElementsAre( std::pair( -1, 3 ) ) );
   EXPECT_THAT( watcher.seen, ElementsAre( std::pair( 1, 2 ) ) );
}

TEST_F( NotifyValuesTest, OutsideOfADispatchBothAreAbsent ) {
   publisher.publishChange( kCount, nullptr, &one, &two );
   const auto [previous, current] =
      Impl::getNotifyValues( publisher, kCount, std::type_identity< int >() );
   EXPECT_EQ( previous, nullptr );
   EXPECT_EQ( current, nullptr );
}

} // namespace
} // namespace Quon::test
