// MPLS routes as a driver publishes them and clients watch them, over a Unix socket. What the
// streams are like is MplsStreams_test's affair.

#include "agent/test/RpcFixture.h"

#include "agent/stream/MplsStreams.h"

#include <functional>
#include <gmock/gmock.h>
#include <velo/rpc/v1/mpls_route_programming.grpc.pb.h>
#include <velo/rpc/v1/switch_state.grpc.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;
using grpc::StatusCode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Routes = v1::PublishMplsRoutesRequest;
using Groups = v1::PublishNexthopGroupsRequest;

/// A call to Watch.
class RoutesWatch {
 public:
   /// The stream is open when this is made.
   explicit RoutesWatch( const std::shared_ptr< grpc::Channel > & channel )
      : stub_( v1::MplsRouteProgramming::NewStub( channel ) ) {
      context_.set_deadline( std::chrono::system_clock::now() + std::chrono::seconds( 60 ) );
      reader_ = stub_->Watch( &context_, {} );
      opened = reads() && message.has_opened();
   }
   ~RoutesWatch() {
      context_.TryCancel();
      if ( reader_ ) { end(); }
   }

   bool reads() { return reader_->Read( &message ); }
   /// "label group version" of each route of the next message.
   std::vector< std::string > nextBatch() {
      std::vector< std::string > told;
      if ( !reads() ) { return told; }
      for ( const auto & route : message.batch().routes() ) {
         told.push_back( std::to_string( route.label() ) + ' ' + route.nexthop_group_name() + " v" +
                         std::to_string( route.route_version() ) );
      }
      return told;
   }
   grpc::Status end() {
      while ( reads() ) {}
      const grpc::Status status = reader_->Finish();
      reader_.reset();
      return status;
   }

   bool opened = false;
   v1::MplsRouteProgrammingWatchResponse message;

 private:
   const std::unique_ptr< v1::MplsRouteProgramming::Stub > stub_;
   grpc::ClientContext context_;
   std::unique_ptr< grpc::ClientReader< v1::MplsRouteProgrammingWatchResponse > > reader_;
};

class MplsRouteProgramming : public RpcFixture {
 protected:
   static void set( Routes & routes, std::uint32_t label, std::uint32_t version,
                    std::uint32_t group = 1 ) {
      v1::MplsHardwareRoute & route = *routes.add_changes()->mutable_set_route();
      route.set_label( label );
      route.set_state( v1::MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
      auto & acknowledged = *route.mutable_acknowledgement();
      acknowledged.set_nexthop_group_id( group );
      acknowledged.set_route_version( version );
      acknowledged.set_nexthop_group_version( 1 );
   }
   grpc::Status publish( const Routes & routes ) {
      v1::PublishMplsRoutesResponse response;
      return call( *stub, &v1::SwitchState::Stub::PublishMplsRoutes, routes, response );
   }
   grpc::Status publish( const Groups & groups ) {
      v1::PublishNexthopGroupsResponse response;
      return call( *stub, &v1::SwitchState::Stub::PublishNexthopGroups, groups, response );
   }
   void acknowledged( std::uint32_t label, std::uint32_t version, std::uint32_t group = 1 ) {
      Routes routes;
      set( routes, label, version, group );
      EXPECT_TRUE( publish( routes ).ok() );
   }
   void named( std::uint32_t group, const std::string & name ) {
      Groups groups;
      auto & change = *groups.add_changes();
      change.set_id( group );
      if ( !name.empty() ) { change.set_name( name ); }
      EXPECT_TRUE( publish( groups ).ok() );
   }
   void removed( std::uint32_t label ) {
      Routes routes;
      routes.add_changes()->set_remove_route( label );
      EXPECT_TRUE( publish( routes ).ok() );
   }

   /// Labels that wait for the name of their group.
   std::size_t parked() {
      return onTheLoop( []( Parts & parts ) {
         std::size_t count = 0;
         for ( const auto & each : parts.managers.mplsRoutes().sm()->parkedRoutes() ) {
            count += each.count;
         }
         return count;
      } );
   }

   std::unique_ptr< v1::SwitchState::Stub > stub = v1::SwitchState::NewStub( connection() );
};

TEST_F( MplsRouteProgramming, AWatcherIsToldOfRoutesOverNamedGroups ) {
   named( 1, "leaf" );
   RoutesWatch watcher( connection() );
   ASSERT_TRUE( watcher.opened );
   acknowledged( 16, 1 );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "16 leaf v1" ) );
   acknowledged( 16, 2 );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "16 leaf v2" ) );
}

TEST_F( MplsRouteProgramming, ARouteIsParkedUntilItsGroupHasAName ) {
   RoutesWatch watcher( connection() );
   acknowledged( 16, 1, 5 );
   EXPECT_EQ( parked(), 1U );
   named( 5, "spine" );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "16 spine v1" ) );
   EXPECT_EQ( parked(), 0U );

   // Without a name again, what comes is parked again.
   named( 5, "" );
   acknowledged( 16, 2, 5 );
   EXPECT_EQ( parked(), 1U );
}

TEST_F( MplsRouteProgramming, ARouteThatTheHardwareDoesNotForwardByYetIsNotTold ) {
   named( 1, "leaf" );
   RoutesWatch watcher( connection() );
   Routes routes;
   set( routes, 16, 1 );
   routes.mutable_changes( 0 )->mutable_set_route()->set_state(
      v1::MplsHardwareRoute::PROGRAMMING_STATE_PENDING );
   set( routes, 17, 0 );
   set( routes, 18, 1 );
   routes.mutable_changes( 2 )->mutable_set_route()->clear_acknowledgement();
   set( routes, 19, 1 );
   routes.mutable_changes( 3 )->mutable_set_route()->mutable_acknowledgement()->set_fec_id( 9 );
   set( routes, 20, 1 );
   ASSERT_TRUE( publish( routes ).ok() );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "20 leaf v1" ) );
   EXPECT_EQ( parked(), 0U );
}

TEST_F( MplsRouteProgramming, ABatchTakesEffectInTheOrderOfItsElementsAndIsToldOncePerLabel ) {
   named( 1, "leaf" );
   RoutesWatch watcher( connection() );
   Routes routes;
   for ( std::uint32_t version = 1; version <= 5000; ++version ) { set( routes, 16, version ); }
   ASSERT_TRUE( publish( routes ).ok() );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "16 leaf v5000" ) );
}

TEST_F( MplsRouteProgramming, RemovingWhatIsNotThereDoesNothing ) {
   removed( 16 );
   named( 5, "" );
   EXPECT_EQ( parked(), 0U );
}

TEST_F( MplsRouteProgramming, ARouteThatWasRemovedWhileItWasParkedIsNotTold ) {
   RoutesWatch watcher( connection() );
   acknowledged( 16, 1, 5 );
   removed( 16 );
   named( 5, "spine" );
   acknowledged( 17, 1, 5 );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "17 spine v1" ) );
}

TEST_F( MplsRouteProgramming, OfABadBatchNothingIsDone ) {
   Routes routes;
   set( routes, 16, 1, 5 );
   set( routes, 1'048'576, 1, 5 );
   const grpc::Status badRoute = publish( routes );
   EXPECT_EQ( badRoute.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( badRoute.error_message(),
              "changes[1]: set_route: label is 1048576; labels go from 0 to 1048575" );
   EXPECT_EQ( parked(), 0U );

   Groups groups;
   for ( const std::size_t length : { 5, 70'000 } ) {
      groups.add_changes()->set_id( 5 );
      groups.mutable_changes()->rbegin()->set_name( std::string( length, 'x' ) );
   }
   const grpc::Status badGroup = publish( groups );
   EXPECT_EQ( badGroup.error_code(), StatusCode::INVALID_ARGUMENT );
   EXPECT_EQ( badGroup.error_message(),
              "changes[1]: name has 70000 bytes; a name has at most 65535" );
   EXPECT_TRUE( onTheLoop(
      []( Parts & parts ) { return parts.managers.nexthopGroups().nexthopGroupName().empty(); } ) );
}

TEST_F( MplsRouteProgramming, AKindOfAdjacencyThatDoesNotExistHarmsNobody ) {
   named( 1, "leaf" );
   RoutesWatch watcher( connection() );
   for ( std::uint64_t kind = 27; kind < 256; ++kind ) {
      Routes routes;
      set( routes, 16, 1 );
      routes.mutable_changes( 0 )->mutable_set_route()->mutable_acknowledgement()->set_fec_id(
         kind << 56 );
      EXPECT_EQ( publish( routes ).error_code(), StatusCode::INVALID_ARGUMENT );
   }
   acknowledged( 16, 1 );
   EXPECT_THAT( watcher.nextBatch(), ElementsAre( "16 leaf v1" ) );
}

TEST_F( MplsRouteProgramming, WatchersThatBreakOffLeaveTheOthersAlone ) {
   named( 1, "leaf" );
   RoutesWatch steady( connection() );
   for ( std::uint32_t n = 0; n < 20; ++n ) {
      const RoutesWatch brief( connection() );
      acknowledged( 16, n + 1 );
   }
   while ( steady.nextBatch() != std::vector< std::string >{ "16 leaf v20" } ) {}
}

TEST_F( MplsRouteProgramming, AWatcherThatReadsNothingGetsTheLatestWhenItReads ) {
   constexpr std::uint32_t kRounds = 100;
   constexpr std::uint32_t kLabels = 2000;
   named( 1, std::string( 100, 'x' ) );
   RoutesWatch slow( connection() );
   // Far more than the transport keeps for a client that does not read.
   for ( std::uint32_t version = 1; version <= kRounds; ++version ) {
      Routes routes;
      for ( std::uint32_t label = 0; label < kLabels; ++label ) { set( routes, label, version ); }
      ASSERT_TRUE( publish( routes ).ok() );
   }
   std::map< std::uint32_t, std::uint32_t > latest;
   std::uint64_t told = 0;
   const auto allLatest = [&] {
      for ( std::uint32_t label = 0; label < kLabels; ++label ) {
         if ( latest[label] != kRounds ) { return false; }
      }
      return true;
   };
   while ( !allLatest() ) {
      ASSERT_TRUE( slow.reads() );
      for ( const auto & route : slow.message.batch().routes() ) {
         latest[route.label()] = route.route_version();
         ++told;
      }
   }
   EXPECT_LT( told, std::uint64_t{ kRounds } * kLabels / 2 );
}

TEST_F( MplsRouteProgramming, AShutdownEndsTheStreamAndIsRetryable ) {
   RoutesWatch watcher( connection() );
   onTheLoop( []( Parts & parts ) { parts.mplsStreams.drain(); } );
   const grpc::Status status = watcher.end();
   EXPECT_EQ( status.error_code(), StatusCode::UNAVAILABLE );
   EXPECT_THAT( status.error_message(), HasSubstr( "shuts down" ) );
   RoutesWatch late( connection() );
   EXPECT_FALSE( late.opened );
   EXPECT_EQ( late.end().error_code(), StatusCode::UNAVAILABLE );
}

} // namespace
} // namespace VeloAgent
