#include <memory>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Link.h"
#include "Lumo/ThrowingAssertionHandler.h"

namespace Lumo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Member : Link {
   explicit Member( int n ) : number( n ) {}
   int number;
};

class Ring : public Link {
 public:
   Ring() { ringBegin(); }
   void append( Member & member ) { member.linkBefore( *this ); }
   std::vector< int > numbers() const {
      std::vector< int > result;
      for ( const Link * at = next(); at != this; at = at->next() ) {
         result.push_back( static_cast< const Member * >( at )->number );
      }
      return result;
   }
};

TEST( LinkTest, MembersStandInTheOrderInWhichTheyJoined ) {
   Ring ring;
   Member one( 1 ), two( 2 ), three( 3 );
   EXPECT_THAT( ring.numbers(), IsEmpty() );
   ring.append( one );
   ring.append( three );
   two.linkBefore( three );
   EXPECT_THAT( ring.numbers(), ElementsAre( 1, 2, 3 ) );
}

TEST( LinkTest, AMemberLeavesAnywhereAndMayJoinAgain ) {
   Ring ring;
   Member one( 1 ), two( 2 ), three( 3 );
   for ( Member * member : { &one, &two, &three } ) { ring.append( *member ); }
   two.unlink();
   EXPECT_FALSE( two.linked() );
   EXPECT_THAT( ring.numbers(), ElementsAre( 1, 3 ) );
   two.unlink();
   ring.append( two );
   EXPECT_THAT( ring.numbers(), ElementsAre( 1, 3, 2 ) );
}

TEST( LinkTest, AMemberIsInOneRingAtATime ) {
   if ( !kDebugChecks ) { GTEST_SKIP() << "built without debug checks"; }
   const ThrowingAssertionHandler assertions;
   Ring ring, other;
   Member one( 1 ), free( 2 );
   ring.append( one );
   EXPECT_THROW( other.append( one ), AssertionThrown );
   EXPECT_THROW( Member( 3 ).linkBefore( free ), AssertionThrown );
   EXPECT_THAT( ring.numbers(), ElementsAre( 1 ) );
}

TEST( LinkTest, ADestroyedMemberHasLeft ) {
   Ring ring;
   Member one( 1 );
   ring.append( one );
   {
      Member two( 2 );
      ring.append( two );
   }
   EXPECT_THAT( ring.numbers(), ElementsAre( 1 ) );
}

} // namespace
} // namespace Lumo
