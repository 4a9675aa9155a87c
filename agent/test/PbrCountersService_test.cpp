// PbrCounters as its clients see it, over a Unix socket. What a stream is like is docs/STREAM.md's
// affair; here it crosses a real connection.

#include "agent/test/RpcFixture.h"

#include <gmock/gmock.h>
#include <map>
#include <thread>
#include <velo/rpc/v1/pbr_counters.grpc.pb.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;
using namespace velo::rpc::v1;
using grpc::StatusCode;
using testing::HasSubstr;
using Opened = PbrCountersWatchResponse::Opened;

/// A call to Watch, and what its client puts together.
class CountersWatch {
 public:
   CountersWatch( const std::shared_ptr< grpc::Channel > & channel,
                  const std::string & resumeToken = {} )
      : stub_( PbrCounters::NewStub( channel ) ) {
      PbrCountersWatchRequest request;
      request.set_resume_token( resumeToken );
      reader_ = stub_->Watch( &context_, request );
   }
   ~CountersWatch() {
      context_.TryCancel();
      if ( reader_ ) { end(); }
   }

   /// A call that goes on where `before` ended, by its token.
   CountersWatch( const std::shared_ptr< grpc::Channel > & channel, const CountersWatch & before )
      : CountersWatch( channel, before.token ) {
      names = before.names;
      packets = before.packets;
   }

   /// The next message; false at the end.
   bool reads() {
      if ( !reader_->Read( &message ) ) { return false; }
      token = message.resume_token();
      for ( const auto & record : message.batch().records() ) {
         if ( record.has_long_key() ) {
            names[record.short_key()] = record.long_key().class_name();
         }
         if ( record.deleted() ) {
            packets.erase( names.at( record.short_key() ) );
         } else {
            packets[names.at( record.short_key() )] = record.counters().packets();
         }
      }
      return true;
   }
   /// Reads until a message makes `condition()` true.
   template< typename Condition >
   void until( Condition condition ) {
      while ( !condition() ) { ASSERT_TRUE( reads() ) << end().error_message(); }
   }
   void untilInSync() {
      until( [this] { return message.has_in_sync(); } );
   }

   /// How the call ended, whatever was still to be read.
   grpc::Status end() {
      while ( reads() ) {}
      const grpc::Status status = reader_->Finish();
      reader_.reset();
      return status;
   }
   void cancel() { context_.TryCancel(); }

   PbrCountersWatchResponse message;
   std::string token;
   std::map< std::uint64_t, std::string > names;
   std::map< std::string, std::uint64_t > packets;

 private:
   const std::unique_ptr< PbrCounters::Stub > stub_;
   grpc::ClientContext context_;
   std::unique_ptr< grpc::ClientReader< PbrCountersWatchResponse > > reader_;
};

class PbrCountersServiceTest : public RpcFixture {
 protected:
   explicit PbrCountersServiceTest( const StreamOptions & options = {} ) : RpcFixture( options ) {
      onTheLoop(
         []( Parts & parts ) { parts.managers.pbrCounters().startWatching( parts.pbrFanout ); } );
   }

   /// Published when this returns; told a little later.
   void publish( CounterChanges changes ) {
      std::promise< void > applied;
      onTheLoop( [&]( Parts & parts ) {
         parts.writer->apply( std::move( changes ), [&applied] { applied.set_value(); } );
      } );
      applied.get_future().get();
   }
   void count( const std::string & name, std::uint64_t packets ) {
      publish( { CountersSet{ "web", name, { .packets = packets, .bytes = 64 * packets } } } );
   }
   static CounterChanges population( int count ) {
      CounterChanges changes;
      for ( int n = 0; n < count; ++n ) {
         changes.push_back( CountersSet{ "web", "class" + std::to_string( n ), {} } );
      }
      return changes;
   }

   grpc::Status get( const PbrCountersGetRequest & request, PbrCountersGetResponse & response ) {
      const auto stub = PbrCounters::NewStub( connection() );
      return call( *stub, &PbrCounters::Stub::Get, request, response );
   }

   /// The client has little room for what it does not read, and does not ask for more of it.
   std::shared_ptr< grpc::Channel > smallConnection() const {
      grpc::ChannelArguments arguments;
      arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
      arguments.SetInt( GRPC_ARG_HTTP2_BDP_PROBE, 0 );
      arguments.SetInt( GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, 64 * 1024 );
      return grpc::CreateCustomChannel( "unix:" + socket(), grpc::InsecureChannelCredentials(),
                                        arguments );
   }

   /// Time passes, and is noticed, until `condition( streams )` holds.
   template< typename Condition >
   void ticksUntil( Condition condition ) {
      while ( !onTheLoop( [&]( Parts & parts ) {
         parts.pbrStreams.tick();
         return condition( parts.pbrStreams );
      } ) ) {
         std::this_thread::yield();
      }
   }
};

TEST_F( PbrCountersServiceTest, AWatcherGetsTheSnapshotThenChanges ) {
   publish( population( 3 ) );
   CountersWatch watcher( connection() );
   watcher.untilInSync();
   count( "class1", 7 );
   publish( { ClassRemoved{ "web", "class0" } } );
   const std::map< std::string, std::uint64_t > expected = { { "class1", 7 }, { "class2", 0 } };
   watcher.until( [&] { return watcher.packets == expected; } );
}

TEST_F( PbrCountersServiceTest, AWatcherResumesWhereItWas ) {
   publish( population( 3 ) );
   CountersWatch before( connection() );
   before.untilInSync();
   before.cancel();
   EXPECT_EQ( before.end().error_code(), StatusCode::CANCELLED );
   count( "class1", 7 );

   CountersWatch after( connection(), before );
   ASSERT_TRUE( after.reads() );
   EXPECT_EQ( after.message.opened().outcome(), Opened::OUTCOME_RESUMED );
   after.until( [&] { return after.packets["class1"] == 7; } );
   EXPECT_EQ( after.message.batch().records_size(), 1 );
   EXPECT_FALSE( after.message.batch().records( 0 ).has_long_key() );
}

TEST_F( PbrCountersServiceTest, AStreamInUseIsTakenOver ) {
   CountersWatch before( connection() );
   before.untilInSync();
   CountersWatch after( connection(), before.token );
   ASSERT_TRUE( after.reads() );
   EXPECT_EQ( after.message.opened().outcome(), Opened::OUTCOME_RESUMED );
   EXPECT_EQ( before.end().error_code(), StatusCode::ABORTED );
}

TEST_F( PbrCountersServiceTest, ATokenThatIsNotOursIsReset ) {
   CountersWatch watcher( connection(), "no token" );
   ASSERT_TRUE( watcher.reads() );
   EXPECT_EQ( watcher.message.opened().outcome(), Opened::OUTCOME_RESET );
   watcher.untilInSync();
}

TEST_F( PbrCountersServiceTest, WatchersThatBreakOffLeaveTheOthersAlone ) {
   publish( population( 1000 ) );
   CountersWatch steady( connection() );
   steady.untilInSync();
   for ( int n = 0; n < 20; ++n ) {
      CountersWatch brief( connection() );
      for ( int read = 0; read < n % 4; ++read ) { brief.reads(); }
   }
   count( "class7", 7 );
   steady.until( [&] { return steady.packets["class7"] == 7; } );
}

TEST_F( PbrCountersServiceTest, AShutdownTellsWhatIsPendingAndIsRetryable ) {
   publish( population( 10 ) );
   CountersWatch watcher( connection() );
   watcher.untilInSync();
   onTheLoop( []( Parts & parts ) { parts.pbrStreams.drain(); } );
   const grpc::Status status = watcher.end();
   EXPECT_EQ( status.error_code(), StatusCode::UNAVAILABLE );
   EXPECT_THAT( status.error_message(), HasSubstr( "shuts down" ) );
   CountersWatch late( connection() );
   EXPECT_EQ( late.end().error_code(), StatusCode::UNAVAILABLE );
}

TEST_F( PbrCountersServiceTest, GetAnswersByEitherKey ) {
   count( "http", 12 );
   PbrCountersGetRequest request;
   request.mutable_long_key()->set_policy( "web" );
   request.mutable_long_key()->set_class_name( "http" );
   PbrCountersGetResponse byLongKey;
   ASSERT_TRUE( get( request, byLongKey ).ok() );
   EXPECT_EQ( byLongKey.record().counters().packets(), 12U );
   EXPECT_EQ( byLongKey.record().counters().bytes(), 768U );
   EXPECT_EQ( byLongKey.record().long_key().class_name(), "http" );

   CountersWatch watcher( connection() );
   watcher.untilInSync(); // What was told may be asked for.
   request.set_short_key( byLongKey.record().short_key() );
   PbrCountersGetResponse byShortKey;
   ASSERT_TRUE( get( request, byShortKey ).ok() );
   EXPECT_EQ( byShortKey.ShortDebugString(), byLongKey.ShortDebugString() );
}

TEST_F( PbrCountersServiceTest, GetSaysWhatIsWrong ) {
   PbrCountersGetResponse response;
   const auto refused = [&]( const PbrCountersGetRequest & request, StatusCode code,
                             const std::string & text ) {
      const grpc::Status status = get( request, response );
      EXPECT_EQ( status.error_code(), code );
      EXPECT_EQ( status.error_message(), text );
   };
   PbrCountersGetRequest request;
   refused( request, StatusCode::INVALID_ARGUMENT,
            "key: not set; it takes a short_key or a long_key" );
   request.set_short_key( 0 );
   refused( request, StatusCode::INVALID_ARGUMENT,
            "short_key: 0 stands for no class; short keys begin at 1" );
   request.set_short_key( 77 );
   refused( request, StatusCode::NOT_FOUND, "there is no class with the short key 77" );
   request.mutable_long_key()->set_policy( "web" );
   refused( request, StatusCode::INVALID_ARGUMENT,
            "long_key: class_name is empty; a name has 1 to 65535 bytes" );
   request.mutable_long_key()->set_class_name( "a\nb" );
   refused( request, StatusCode::NOT_FOUND, "there is no class \"a\\x0ab\" of policy \"web\"" );
}

/// Clients are stuck when they take nothing for a fifth of a second.
class ImpatientPbrCountersServiceTest : public PbrCountersServiceTest {
 protected:
   ImpatientPbrCountersServiceTest() : PbrCountersServiceTest( { .stallTime = 200ms } ) {}
};

TEST_F( ImpatientPbrCountersServiceTest, AWatcherThatNeverReadsIsClosedWithAReason ) {
   // Far more than what this connection takes in without being read from.
   publish( population( 100'000 ) );
   CountersWatch asleep( smallConnection() );
   ticksUntil( []( PbrStreams & streams ) { return streams.size() == 1; } );
   CountersWatch awake( connection() );
   awake.untilInSync();
   const auto closed = [this] {
      return onTheLoop( []( Parts & parts ) {
         parts.pbrStreams.tick();
         for ( const auto & [id, client] : parts.clients.clients() ) {
            if ( client->report().state == ClientState::away ) { return true; }
         }
         return false;
      } );
   };
   while ( !closed() ) { std::this_thread::yield(); }
   const grpc::Status status = asleep.end();
   EXPECT_EQ( status.error_code(), StatusCode::RESOURCE_EXHAUSTED );
   EXPECT_THAT( status.error_message(), HasSubstr( "nothing was taken for 200 ms" ) );
   // Of those who take what they are sent nobody minds.
   count( "class7", 7 );
   awake.until( [&] { return awake.packets["class7"] == 7; } );

   CountersWatch again( connection(), asleep );
   ASSERT_TRUE( again.reads() );
   EXPECT_EQ( again.message.opened().outcome(), Opened::OUTCOME_RESUMED );
   again.untilInSync();
   EXPECT_EQ( again.packets.size(), 100'000U );
}

} // namespace
} // namespace VeloAgent
