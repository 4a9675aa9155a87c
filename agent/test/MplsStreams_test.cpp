// MPLS routes fanned out to clients of different speed, with time standing still and a transport
// that the test moves.

#include "agent/stream/MplsStreams.h"

#include "Oru/FakeClock.h"
#include "VeloSdkRpc/test/Loop.h"
#include "agent/Managers.h"
#include "agent/test/TestCall.h"

#include <chrono>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <random>
#include <vector>
#include <velo/rpc/v1/mpls_route_programming.pb.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;
using Mpls::RouteKey;
using Mpls::Hardware::AckInfo;
using Mpls::Hardware::Route;
using Plink::Fib::FecId;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using velo::rpc::v1::MplsRouteProgrammingWatchResponse;

/// Takes its messages when the test says so, and keeps what it was told.
class Client {
 public:
   explicit Client( MplsStreams & streams ) { streams.open( call ); }

   /// Takes one message; false if there is none.
   bool takes() {
      const auto taken = call.take();
      if ( !taken ) { return false; }
      EXPECT_EQ( taken->has_opened(), messages == 0 ) << "opened comes first, and once";
      ++messages;
      largest = std::max( largest, taken->batch().routes_size() );
      mostBytes = std::max( mostBytes, taken->ByteSizeLong() );
      for ( const auto & route : taken->batch().routes() ) {
         told.push_back( std::to_string( route.label() ) + ' ' + route.nexthop_group_name() + " v" +
                         std::to_string( route.route_version() ) );
         versions[route.label()] = route.route_version();
      }
      return true;
   }

   test::TestCallOf< MplsRouteProgrammingWatchResponse > call;
   int messages = 0;
   int largest = 0;                                   ///< Routes in one message.
   std::size_t mostBytes = 0;                         ///< Of one message.
   std::vector< std::string > told;                   ///< "label group version", in order.
   std::map< std::uint32_t, std::uint32_t > versions; ///< The latest told of each label.
};

class MplsStreamsTest : public testing::Test {
 protected:
   MplsStreamsTest() {
      managers.mount();
      streams->start();
   }

   void acknowledged( std::uint32_t label, std::uint32_t version, std::uint32_t group = 1 ) {
      const RouteKey key( label );
      managers.mplsStatus().routeIs(
         key, Route( key, AckInfo( FecId::nexthopGroupIdToFecId( group ), version, 1, 7 ) ) );
   }
   void removed( std::uint32_t label ) { managers.mplsStatus().routeDel( RouteKey( label ) ); }
   void named( std::uint32_t group, const char * name ) {
      managers.nexthopGroups().nexthopGroupNameIs( group, name );
   }

   /// The loop runs until nothing is left to do, while those of `taking` take what they are sent.
   void settle( const std::vector< Client * > & taking = {} ) {
      bool moved = true;
      while ( moved ) {
         moved = loop.runUntilIdle() > 0;
         for ( Client * const client : taking ) { moved = client->takes() || moved; }
      }
   }
   void settle( Client & client ) { settle( std::vector{ &client } ); }

   /// `streams` with other options.
   void optionsAre( const StreamOptions & options ) {
      streams.emplace( loop.scheduler(), managers.mplsRoutes(), managers.nexthopGroups(), clients,
                       options, clock );
      streams->start();
   }

   VeloSdkRpc::test::Loop loop;
   Oru::FakeClock clock;
   Managers managers{ Lumo::makeNode< Managers::PbrCountersRoot >() };
   WatchingClients clients;
   std::optional< MplsStreams > streams{ std::in_place,
                                         loop.scheduler(),
                                         managers.mplsRoutes(),
                                         managers.nexthopGroups(),
                                         clients,
                                         StreamOptions(),
                                         clock };
};

TEST_F( MplsStreamsTest, AClientIsToldFirstThatItsStreamIsOpen ) {
   Client client( *streams );
   settle( client );
   EXPECT_EQ( client.messages, 1 );
   EXPECT_THAT( client.told, IsEmpty() );
}

TEST_F( MplsStreamsTest, ARouteOverANamedGroupIsToldWithAllThatIsKnownOfIt ) {
   named( 5, "spine" );
   Client client( *streams );
   settle( client );
   acknowledged( 1'048'575, 3, 5 );
   settle();
   const auto message = client.call.take();
   ASSERT_TRUE( message && message->batch().routes_size() == 1 );
   const auto & route = message->batch().routes( 0 );
   EXPECT_EQ( route.label(), 1'048'575U );
   EXPECT_EQ( route.fec_id(), FecId::nexthopGroupIdToFecId( 5 ).value() );
   EXPECT_EQ( route.nexthop_group_id(), 5U );
   EXPECT_EQ( route.nexthop_group_name(), "spine" );
   EXPECT_EQ( route.route_version(), 3U );
   EXPECT_EQ( route.nexthop_group_version(), 1U );
   EXPECT_EQ( route.ack(), 7U );
}

TEST_F( MplsStreamsTest, ARouteIsToldAsSoonAsItsGroupHasAName ) {
   Client client( *streams );
   acknowledged( 16, 1, 5 );
   settle( client );
   EXPECT_THAT( client.told, IsEmpty() );
   named( 5, "spine" );
   settle( client );
   EXPECT_THAT( client.told, ElementsAre( "16 spine v1" ) );
}

TEST_F( MplsStreamsTest, WhatWasAcknowledgedBeforeIsToldWhenItChangesOrItsNameComes ) {
   named( 1, "leaf" );
   acknowledged( 16, 1, 1 );
   acknowledged( 17, 1, 5 );
   Client client( *streams );
   settle( client );
   EXPECT_THAT( client.told, IsEmpty() );
   acknowledged( 16, 2, 1 );
   named( 5, "spine" );
   settle( client );
   EXPECT_THAT( client.told, UnorderedElementsAre( "16 leaf v2", "17 spine v1" ) );
}

TEST_F( MplsStreamsTest, TheNameIsThatOfTheTimeWhenTheRouteWasTold ) {
   named( 1, "leaf" );
   Client client( *streams );
   acknowledged( 16, 1 );
   named( 1, "other" );
   managers.nexthopGroups().nexthopGroupNameDel( 1 );
   settle( client );
   EXPECT_THAT( client.told, ElementsAre( "16 leaf v1" ) );
}

TEST_F( MplsStreamsTest, OfASlowClientOnlyTheLatestOfEachLabelWaits ) {
   named( 1, "leaf" );
   Client slow( *streams );
   settle();
   for ( std::uint32_t version = 1; version <= 100; ++version ) {
      for ( std::uint32_t label = 16; label < 20; ++label ) { acknowledged( label, version ); }
      settle();
   }
   EXPECT_EQ( clients.clients().begin()->second->report().queue, 4U );
   settle( slow );
   EXPECT_THAT( slow.told, UnorderedElementsAre( "16 leaf v100", "17 leaf v100", "18 leaf v100",
                                                 "19 leaf v100" ) );
}

TEST_F( MplsStreamsTest, ASlowClientDelaysNobody ) {
   named( 1, "leaf" );
   Client slow( *streams );
   Client fast( *streams );
   settle( fast );
   for ( std::uint32_t version = 1; version <= 3; ++version ) {
      acknowledged( 16, version );
      settle( fast );
   }
   EXPECT_THAT( fast.told, ElementsAre( "16 leaf v1", "16 leaf v2", "16 leaf v3" ) );
   settle( slow );
   EXPECT_THAT( slow.told, ElementsAre( "16 leaf v3" ) );
}

TEST_F( MplsStreamsTest, ARouteThatIsRemovedIsNotToldNorIsWhatWaitedTakenBack ) {
   named( 1, "leaf" );
   Client client( *streams );
   acknowledged( 16, 1 );
   removed( 16 );
   settle( client );
   EXPECT_THAT( client.told, ElementsAre( "16 leaf v1" ) );
}

TEST_F( MplsStreamsTest, MessagesAreBoundedAndNothingIsLostBetweenThem ) {
   optionsAre( { .recordsPerMessage = 10 } );
   named( 1, "leaf" );
   Client client( *streams );
   for ( std::uint32_t label = 16; label < 116; ++label ) { acknowledged( label, 1 ); }
   settle( client );
   EXPECT_EQ( client.largest, 10 );
   EXPECT_EQ( client.messages, 11 );
   EXPECT_THAT( client.told, SizeIs( 100 ) );
   EXPECT_THAT( client.versions, SizeIs( 100 ) );
}

TEST_F( MplsStreamsTest, MessagesStayFarBelowWhatAClientTakesInHoweverLongTheNames ) {
   named( 1, std::string( 60'000, 'g' ).c_str() );
   Client client( *streams );
   for ( std::uint32_t label = 16; label < 116; ++label ) { acknowledged( label, 1 ); }
   settle( client );
   EXPECT_LT( client.mostBytes, 1024 * 1024U );
   EXPECT_THAT( client.versions, SizeIs( 100 ) );
}

TEST_F( MplsStreamsTest, EveryLabelHasItsTurnHoweverFastTheOthersChange ) {
   optionsAre( { .recordsPerMessage = 2 } );
   named( 1, "leaf" );
   Client client( *streams );
   settle();
   for ( std::uint32_t label = 16; label < 26; ++label ) { acknowledged( label, 1 ); }
   client.takes();
   for ( std::uint32_t version = 2; version < 7; ++version ) {
      settle();
      client.takes();
      // Whatever was told changes at once.
      for ( const auto & [label, told] : client.versions ) { acknowledged( label, version ); }
   }
   EXPECT_THAT( client.versions, SizeIs( 10 ) ) << "five messages of two routes each";
}

TEST_F( MplsStreamsTest, SlowAndFastClientsEndUpKnowingTheSame ) {
   optionsAre( { .recordsPerMessage = 3 } );
   for ( std::uint32_t group = 1; group < 4; ++group ) { named( group, "group" ); }
   Client fast( *streams );
   Client slow( *streams );
   Client slower( *streams );
   std::mt19937 random( 1 );
   for ( std::uint32_t version = 1; version < 3000; ++version ) {
      acknowledged( 16 + random() % 40, version, 1 + random() % 3 );
      settle( fast );
      if ( version % 5 == 0 ) { slow.takes(); }
      if ( version % 100 == 0 ) { slower.takes(); }
   }
   settle( { &fast, &slow, &slower } );
   EXPECT_THAT( fast.versions, SizeIs( 40 ) );
   EXPECT_EQ( slow.versions, fast.versions );
   EXPECT_EQ( slower.versions, fast.versions );
   EXPECT_LT( slower.told.size(), slow.told.size() );
   EXPECT_LT( slow.told.size(), fast.told.size() );
}

TEST_F( MplsStreamsTest, ASliceEndsBetweenTwoClientsAndTheNextGoesOnThere ) {
   settle();
   loop.yieldsAfter( 0 );
   Client first( *streams );
   Client second( *streams );
   Client third( *streams );
   std::vector< int > written;
   while ( loop.runOne() ) {
      written.push_back( int{ first.call.onItsWay() } + int{ second.call.onItsWay() } +
                         int{ third.call.onItsWay() } );
   }
   EXPECT_THAT( written, ElementsAre( 1, 2, 3, 3 ) ) << "the last finds that all were served";
}

TEST_F( MplsStreamsTest, AClientThatTakesNothingIsClosedWithAReason ) {
   optionsAre( { .stallTime = 1000ms } );
   named( 1, "leaf" );
   Client stuck( *streams );
   Client idle( *streams );
   settle( idle );
   clock.advance( 999ms );
   streams->tick();
   EXPECT_FALSE( stuck.call.closed() );
   clock.advance( 1ms );
   streams->tick();
   ASSERT_TRUE( stuck.call.closed() );
   EXPECT_EQ( stuck.call.why(), StreamEnd::exhausted );
   EXPECT_EQ( stuck.call.text(), "nothing was taken for 1000 ms; watch again for what comes" );
   EXPECT_FALSE( idle.call.closed() ) << "there was nothing for it to take";
}

TEST_F( MplsStreamsTest, NoMoreClientsAreServedThanMayBe ) {
   optionsAre( { .mostClients = 2 } );
   const auto first = std::make_unique< Client >( *streams );
   auto second = std::make_unique< Client >( *streams );
   Client third( *streams );
   ASSERT_TRUE( third.call.closed() );
   EXPECT_EQ( third.call.why(), StreamEnd::exhausted );
   EXPECT_THAT( third.call.text(), HasSubstr( "2 clients" ) );
   second.reset();
   Client fourth( *streams );
   EXPECT_FALSE( fourth.call.closed() );
}

TEST_F( MplsStreamsTest, AClientThatGoesIsForgotten ) {
   {
      Client client( *streams );
      settle();
      EXPECT_THAT( clients.clients(), SizeIs( 1 ) );
   }
   EXPECT_EQ( streams->size(), 0U );
   EXPECT_THAT( clients.clients(), IsEmpty() );
   named( 1, "leaf" );
   acknowledged( 16, 1 );
   settle();
}

TEST_F( MplsStreamsTest, AShutdownTellsWhatIsPendingThenClosesAndTakesNoOther ) {
   optionsAre( { .recordsPerMessage = 1 } );
   named( 1, "leaf" );
   Client busy( *streams );
   Client idle( *streams );
   settle( idle );
   acknowledged( 16, 1 );
   acknowledged( 17, 1 );
   settle( idle );
   streams->drain();
   EXPECT_TRUE( idle.call.closed() );
   EXPECT_EQ( idle.call.why(), StreamEnd::unavailable );
   EXPECT_FALSE( busy.call.closed() );
   settle( busy );
   EXPECT_THAT( busy.told, SizeIs( 2 ) );
   EXPECT_TRUE( busy.call.closed() );
   EXPECT_EQ( busy.call.text(), "the agent shuts down; try again" );

   Client late( *streams );
   ASSERT_TRUE( late.call.closed() );
   EXPECT_EQ( late.call.why(), StreamEnd::unavailable );
}

TEST_F( MplsStreamsTest, AShutdownDoesNotWaitForEver ) {
   Client stuck( *streams );
   settle();
   streams->drain();
   EXPECT_FALSE( stuck.call.closed() );
   streams->closeNow();
   ASSERT_TRUE( stuck.call.closed() );
   EXPECT_EQ( stuck.call.why(), StreamEnd::unavailable );
}

TEST_F( MplsStreamsTest, AReportSaysHowFarAClientIs ) {
   named( 1, "leaf" );
   Client client( *streams );
   settle( client );
   acknowledged( 16, 1 );
   settle( client );
   acknowledged( 17, 1 );
   settle();
   acknowledged( 18, 1 );
   clock.advance( 250ms );
   const ClientReport report = clients.clients().begin()->second->report();
   EXPECT_EQ( report.peer, "test:" );
   EXPECT_EQ( report.stream, ClientStream::mplsRoutes );
   EXPECT_EQ( report.state, ClientState::inSync );
   EXPECT_EQ( report.queue, 1U );
   EXPECT_EQ( report.recordsSent, 2U );
   EXPECT_EQ( report.messagesSent, 3U );
   EXPECT_EQ( report.idleMs, 250U );
}

} // namespace
} // namespace VeloAgent
