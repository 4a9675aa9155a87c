#include "Mpls/Mpls.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "Quon/Quon.h"

namespace Mpls::test {
namespace {

using Hardware::AckInfo;
using Hardware::Route;
using Hardware::Status;
using Plink::Fib::FecId;
using testing::ElementsAre;
using testing::Pair;

// Values ------------------------------------------------------------------------------------------

TEST( RouteKey, IsComparedAndOrderedByItsLabel ) {
   EXPECT_EQ( RouteKey( 16 ), RouteKey( 16 ) );
   EXPECT_NE( RouteKey( 16 ), RouteKey( 17 ) );
   EXPECT_LT( RouteKey( 16 ), RouteKey( 17 ) );
}

TEST( RouteKey, TheDefaultNamesNoRoute ) {
   EXPECT_NE( RouteKey(), RouteKey( 0 ) ); // The label that stands for "explicit null".
   EXPECT_EQ( RouteKey().label(), RouteKey::kNoLabel );
}

TEST( RouteKey, HashesByLabelAndSeed ) {
   EXPECT_EQ( RouteKey( 16 ).hash( 1 ), RouteKey( 16 ).hash( 1 ) );
   EXPECT_NE( RouteKey( 16 ).hash( 1 ), RouteKey( 16 ).hash( 2 ) );
   EXPECT_NE( RouteKey( 16 ).hash( 1 ), RouteKey( 17 ).hash( 1 ) );
}

TEST( RouteKey, HasATextForm ) {
   const std::string text = "Value('Mpls::RouteKey', ** {'label': 16})";
   EXPECT_EQ( fmt::format( "{}", RouteKey( 16 ) ), text );
   EXPECT_EQ( testing::PrintToString( RouteKey( 16 ) ), text );
   Quon::CharRange range( text );
   EXPECT_EQ( RouteKey( range ), RouteKey( 16 ) );
}

TEST( AckInfo, ADefaultOneAcknowledgesNothing ) {
   EXPECT_EQ( AckInfo(), AckInfo( FecId(), 0, 0, 0 ) );
}

TEST( AckInfo, IsComparedByAllItsFields ) {
   const AckInfo ackInfo( FecId( 1 ), 2, 3, 4 );
   EXPECT_EQ( ackInfo, AckInfo( FecId( 1 ), 2, 3, 4 ) );
   EXPECT_NE( ackInfo, AckInfo( FecId( 9 ), 2, 3, 4 ) );
   EXPECT_NE( ackInfo, AckInfo( FecId( 1 ), 9, 3, 4 ) );
   EXPECT_NE( ackInfo, AckInfo( FecId( 1 ), 2, 9, 4 ) );
   EXPECT_NE( ackInfo, AckInfo( FecId( 1 ), 2, 3, 9 ) );
}

TEST( Route, IsProgrammedAndNotAcknowledgedUntilSomethingElseIsSaid ) {
   EXPECT_EQ( Route().key(), RouteKey() );
   EXPECT_FALSE( Route().ackInfo() );
   EXPECT_EQ( Route().programmingState(), Route::kProgrammed );
   EXPECT_EQ( int{ Route::kProgrammed }, 0 );
}

TEST( Route, HasATextFormWithAndWithoutAnAcknowledgement ) {
   const Route bare( RouteKey( 16 ), {}, 2 );
   const std::string bareText =
      "Value('Mpls::Hardware::Route', ** {'key': Value('Mpls::RouteKey', ** {'label': 16}), "
      "'ackInfo': None, 'programmingState': 2})";
   EXPECT_EQ( testing::PrintToString( bare ), bareText );
   EXPECT_EQ( Quon::fromText< Route >( bareText ), bare );

   const Route route( RouteKey( 16 ), AckInfo( FecId( 7 ), 1, 2, 255 ) );
   const std::string ackText =
      "Value('Mpls::Hardware::AckInfo', ** {'fecId': Value('Plink::Fib::FecId', ** {'value': 7}), "
      "'routeVersion': 1, 'nexthopGroupVersion': 2, 'ack': 255})";
   const std::string text =
      "Value('Mpls::Hardware::Route', ** {'key': Value('Mpls::RouteKey', ** {'label': 16}), "
      "'ackInfo': " +
      ackText + ", 'programmingState': 0})";
   EXPECT_EQ( testing::PrintToString( *route.ackInfo() ), ackText );
   EXPECT_EQ( fmt::format( "{}", route ), text );
   Quon::CharRange range( text );
   EXPECT_EQ( Route( range ), route );
}

// Status ------------------------------------------------------------------------------------------

/// Writes down every change of a status.
class Watcher {
 public:
   explicit Watcher( const Status & status ) { status.publisher()->subscriberAdd( slot_ ); }
   bool isZombie() const { return false; }

   using Change = std::pair< Quon::Optional< Route >, Quon::Optional< Route > >;
   std::vector< std::pair< std::uint32_t, Change > > told;

 private:
   void changed( Lumo::Publisher * publisher, Lumo::Subscriber *, short attributeId,
                 const void * key, const void * ) {
      ASSERT_EQ( attributeId, Status::kRoute );
      const auto [previous, current] =
         Quon::Impl::getNotifyValues( *publisher, attributeId, std::type_identity< Route >() );
      const auto copy = []( const Route * route ) {
         return route ? Quon::Optional( *route ) : Quon::Optional< Route >();
      };
      told.emplace_back( static_cast< const RouteKey * >( key )->label(),
                         Change( copy( previous ), copy( current ) ) );
   }

   Lumo::MemberSubscriber< Watcher, &Watcher::changed > slot_{ this };
};

class StatusTest : public testing::Test {
 protected:
   static constexpr std::nullopt_t none = std::nullopt;

   const Lumo::Ptr< Status > status = Lumo::makeNode< Status >();
   Watcher watcher{ *status };
};

TEST_F( StatusTest, TellsEveryChangeOfARoute ) {
   const RouteKey key( 16 );
   const Route bare( key ), acknowledged( key, AckInfo( FecId( 1 ), 1, 1, 0 ) );
   status->routeIs( key, bare );
   status->routeIs( key, acknowledged );
   status->routeIs( key, acknowledged );
   EXPECT_EQ( status->route()[key]->value(), acknowledged );
   status->routeDel( key );
   status->routeDel( key );
   EXPECT_FALSE( status->route()[key] );
   EXPECT_THAT( watcher.told, ElementsAre( Pair( 16, Watcher::Change( none, bare ) ),
                                           Pair( 16, Watcher::Change( bare, acknowledged ) ),
                                           Pair( 16, Watcher::Change( acknowledged, none ) ) ) );
}

TEST_F( StatusTest, LosesAllItsRoutesOneByOne ) {
   status->routeIs( RouteKey( 16 ), Route( RouteKey( 16 ) ) );
   status->routeIs( RouteKey( 17 ), Route( RouteKey( 17 ) ) );
   watcher.told.clear();
   status->routeDelAll();
   EXPECT_EQ( watcher.told.size(), 2U );
   EXPECT_TRUE( status->route().empty() );
}

TEST_F( StatusTest, ARouteSitsUnderItsOwnKey ) {
   const Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( status->routeIs( RouteKey( 16 ), Route( RouteKey( 17 ) ) ),
                 Lumo::AssertionThrown );
   EXPECT_TRUE( status->route().empty() );
   EXPECT_TRUE( watcher.told.empty() );
}

TEST_F( StatusTest, KnowsItsType ) {
   EXPECT_EQ( status->typeData().typeName, "Mpls::Hardware::Status" );
   EXPECT_THAT( status->typeData().attributeNames, ElementsAre( "route" ) );
}

} // namespace
} // namespace Mpls::test
