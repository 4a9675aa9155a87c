// What a driver publishes of PBR counters, and what of it is refused.

#include "agent/test/RpcFixture.h"

#include "agent/rpc/PbrCountersConversion.h"
#include "agent/test/TreeSnapshot.h"

#include <gmock/gmock.h>
#include <velo/rpc/v1/switch_state.grpc.pb.h>

namespace VeloAgent {
namespace {

namespace v1 = velo::rpc::v1;
using testing::IsEmpty;

class SwitchStatePbr : public RpcFixture {
 protected:
   grpc::Status publish( const v1::PublishPbrCountersRequest & request ) {
      v1::PublishPbrCountersResponse response;
      return call( *stub_, &v1::SwitchState::Stub::PublishPbrCounters, request, response );
   }
   grpc::Status publish( const CounterChanges & changes ) {
      v1::PublishPbrCountersRequest request;
      for ( const CounterChange & change : changes ) {
         *request.add_changes() = messageOf( change );
      }
      return publish( request );
   }
   /// INVALID_ARGUMENT, with this text.
   void expectRefused( const v1::PublishPbrCountersRequest & request, const std::string & text ) {
      const grpc::Status status = publish( request );
      EXPECT_EQ( status.error_code(), grpc::StatusCode::INVALID_ARGUMENT );
      EXPECT_EQ( status.error_message(), text );
   }

   CounterSnapshot tree() {
      return onTheLoop( []( Parts & parts ) { return snapshotOf( *parts.root ); } );
   }

   std::unique_ptr< v1::SwitchState::Stub > stub_ = v1::SwitchState::NewStub( connection() );
};

TEST_F( SwitchStatePbr, WhatWasPublishedIsInTheTreeWhenTheAnswerComes ) {
   ASSERT_TRUE( publish( { CountersSet{ "web", "http", { 12, 1008 } },
                           CountersSet{ "web", "https", { 1, 64 } },
                           CountersSet{ "mail", "smtp", { 0, 0 } } } )
                   .ok() );
   EXPECT_EQ( tree(), ( CounterSnapshot{
                         { "mail", { { "smtp", {} } } },
                         { "web", { { "http", { 12, 1008 } }, { "https", { 1, 64 } } } } } ) );
   ASSERT_TRUE( publish( { ClassRemoved{ "web", "http" }, PolicyRemoved{ "mail" } } ).ok() );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "web", { { "https", { 1, 64 } } } } } ) );
}

TEST_F( SwitchStatePbr, ABatchTakesEffectInTheOrderOfItsElements ) {
   ASSERT_TRUE( publish( { CountersSet{ "web", "http", { 1, 64 } }, PolicyRemoved{ "web" },
                           CountersSet{ "web", "ftp", { 2, 128 } },
                           CountersSet{ "web", "ftp", { 3, 192 } } } )
                   .ok() );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { "web", { { "ftp", { 3, 192 } } } } } ) );
}

TEST_F( SwitchStatePbr, ABatchOfNothingIsAnswered ) {
   EXPECT_TRUE( publish( CounterChanges() ).ok() );
   EXPECT_THAT( tree(), IsEmpty() );
}

TEST_F( SwitchStatePbr, RemovingWhatIsNotThereDoesNothing ) {
   EXPECT_TRUE( publish( { ClassRemoved{ "web", "http" }, PolicyRemoved{ "web" } } ).ok() );
   EXPECT_THAT( tree(), IsEmpty() );
}

TEST_F( SwitchStatePbr, NamesAreBytesAsTheSwitchHasThem ) {
   const std::string odd( "\xff\0\n", 3 );
   ASSERT_TRUE( publish( { CountersSet{ odd, odd, { 1, 64 } } } ).ok() );
   EXPECT_EQ( tree(), ( CounterSnapshot{ { odd, { { odd, { 1, 64 } } } } } ) );
}

TEST_F( SwitchStatePbr, BatchesOfManyClientsAreAllApplied ) {
   constexpr int kClients = 4;
   constexpr int kBatches = 10;
   std::vector< std::thread > clients;
   for ( int client = 0; client < kClients; ++client ) {
      clients.emplace_back( [this, client] {
         for ( int batch = 0; batch < kBatches; ++batch ) {
            EXPECT_TRUE( publish( { CountersSet{ "policy" + std::to_string( client ),
                                                 "class" + std::to_string( batch ),
                                                 { 1, 64 } } } )
                            .ok() );
         }
      } );
   }
   for ( std::thread & client : clients ) { client.join(); }
   const CounterSnapshot found = tree();
   EXPECT_EQ( found.size(), std::size_t{ kClients } );
   for ( const auto & [policy, classes] : found ) {
      EXPECT_EQ( classes.size(), std::size_t{ kBatches } ) << policy;
   }
}

TEST_F( SwitchStatePbr, AnElementThatSaysNothingIsNamedAndNothingIsDone ) {
   v1::PublishPbrCountersRequest request;
   *request.add_changes() = messageOf( CountersSet{ "web", "http", {} } );
   request.add_changes();
   expectRefused( request, "changes[1]: no change; one of set_class, remove_class and "
                           "remove_policy would be one" );
   EXPECT_THAT( tree(), IsEmpty() );
}

TEST_F( SwitchStatePbr, NamesThatNoTreeCanHoldAreRefused ) {
   const auto with = []( const CounterChange & change ) {
      v1::PublishPbrCountersRequest request;
      *request.add_changes() = messageOf( change );
      return request;
   };
   expectRefused( with( CountersSet{ "", "http", {} } ),
                  "changes[0]: policy is empty; a name has 1 to 65535 bytes" );
   expectRefused( with( CountersSet{ "web", "", {} } ),
                  "changes[0]: class_name is empty; a name has 1 to 65535 bytes" );
   expectRefused( with( ClassRemoved{ "web", "" } ),
                  "changes[0]: class_name is empty; a name has 1 to 65535 bytes" );
   expectRefused( with( PolicyRemoved{ "" } ),
                  "changes[0]: policy is empty; a name has 1 to 65535 bytes" );
   expectRefused( with( CountersSet{ "web", std::string( 65536, 'x' ), {} } ),
                  "changes[0]: class_name has 65536 bytes; a name has at most 65535" );
   EXPECT_TRUE( publish( { CountersSet{ "web", std::string( 65535, 'x' ), {} } } ).ok() );
   EXPECT_THAT( onTheLoop( []( Parts & parts ) { return parts.failures; } ), IsEmpty() );
}

} // namespace
} // namespace VeloAgent
