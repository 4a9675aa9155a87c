// What a client of the PBR counters stream can rely on, property by property; see docs/STREAM.md.

#include "agent/test/StreamWorld.h"

#include <gmock/gmock.h>

namespace VeloAgent::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PbrStreamTest : public testing::Test, protected StreamWorld {
 protected:
   explicit PbrStreamTest( const StreamOptions & given = {} ) : StreamWorld( given ) {}
   ~PbrStreamTest() override { EXPECT_THAT( client.faults, IsEmpty() ); }

   void begins() {
      client.begins();
      settle( client );
   }
   /// "opened", "batch" (several in one: "batch..."), "in_sync" of the last call.
   std::vector< std::string > events() const {
      std::vector< std::string > all;
      for ( const auto & message : client.log ) {
         if ( message.has_opened() ) { all.emplace_back( "opened" ); }
         if ( message.has_in_sync() ) { all.emplace_back( "in_sync" ); }
         if ( message.has_batch() ) { all.emplace_back( "batch" ); }
      }
      all.erase( std::unique( all.begin(), all.end() ), all.end() );
      return all;
   }
   /// All records of the last call, in order.
   std::vector< PbrCountersRecord > records() const {
      std::vector< PbrCountersRecord > all;
      for ( const auto & message : client.log ) {
         for ( const auto & record : message.batch().records() ) { all.push_back( record ); }
      }
      return all;
   }
   std::vector< std::uint64_t > toldKeys() const {
      std::vector< std::uint64_t > keys;
      for ( const auto & record : records() ) { keys.push_back( record.short_key() ); }
      return keys;
   }
   Opened::Outcome outcome() const { return client.log.at( 0 ).opened().outcome(); }
   void forgetLog() { client.log.clear(); }

   /// Adds classes c1, c2, ...
   void addClasses( int count ) {
      for ( int n = 1; n <= count; ++n ) { tree.addClass( "web", "c" + std::to_string( n ) ); }
   }

   StreamClient client{ streams };
};

TEST_F( PbrStreamTest, SnapshotFirstThenInSyncThenChanges ) {
   addClasses( 3 );
   begins();
   EXPECT_THAT( events(), ElementsAre( "opened", "batch", "in_sync" ) );
   EXPECT_EQ( outcome(), Opened::OUTCOME_SNAPSHOT );
   EXPECT_EQ( client.contents(), tree.contents() );
   tree.count( "web", "c2", 7 );
   settle( client );
   EXPECT_THAT( events(), ElementsAre( "opened", "batch", "in_sync", "batch" ) );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, ASnapshotOfNothingIsInSyncAtOnce ) {
   begins();
   EXPECT_THAT( events(), ElementsAre( "opened", "in_sync" ) );
}

TEST_F( PbrStreamTest, InSyncWaitsUntilTheLibraryHasDeliveredAllThatExists ) {
   addClasses( 100 );
   loop.yieldsAfter( 9 );
   client.begins();
   while ( !client.knows().inSync ) {
      ASSERT_TRUE( loop.runOne() );
      while ( client.takes() ) {}
   }
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, InSyncDoesNotWaitUntilTheLibraryIsSilent ) {
   addClasses( 50 );
   loop.yieldsAfter( 4 ); // Five records a run, and then there are always more.
   client.begins();
   for ( std::uint64_t n = 1; !client.knows().inSync; ++n ) {
      ASSERT_LT( n, 1000U );
      for ( int c = 1; c <= 50; ++c ) { tree.count( "web", "c" + std::to_string( c ), n ); }
      ASSERT_TRUE( loop.runOne() );
      while ( client.takes() ) {}
   }
   EXPECT_THAT( client.knows().names, SizeIs( 50 ) );
   EXPECT_FALSE( mgr.backlog()->backlog().empty() );
}

TEST_F( PbrStreamTest, InSyncDoesNotWaitUntilThereIsNothingToTell ) {
   addClasses( 50 );
   settle();
   client.begins();
   for ( std::uint64_t n = 1; !client.knows().inSync; ++n ) {
      ASSERT_LT( n, 1000U );
      for ( int c = 1; c <= 50; ++c ) { tree.count( "web", "c" + std::to_string( c ), n ); }
      settle(); // Whatever the client takes now, more is there to be told.
      client.takes();
   }
   EXPECT_THAT( client.knows().names, SizeIs( 50 ) );
   settle( client );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, WhatChangesDuringTheSnapshotIsToldBeforeInSync ) {
   addClasses( 50 );
   settle();
   loop.yieldsAfter( 9 );
   client.begins();
   for ( int n = 0; n < 4; ++n ) {
      loop.runOne();
      client.takes();
   }
   ASSERT_FALSE( client.knows().names.empty() );
   ASSERT_FALSE( client.knows().inSync );
   tree.count( "web", "c1", 7 );
   tree.count( "web", "c50", 8 );
   tree.removeClass( "web", "c2" );
   tree.removeClass( "web", "c49" );
   tree.addClass( "web", "new", 9 );
   while ( !client.knows().inSync ) {
      ASSERT_TRUE( loop.runOne() );
      client.takes();
   }
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, ALongKeyIsToldOnceToEveryClient ) {
   addClasses( 1 );
   begins();
   tree.count( "web", "c1", 7 );
   settle( client );
   EXPECT_THAT( records(), SizeIs( 2 ) );
   EXPECT_TRUE( records()[0].has_long_key() );
   EXPECT_FALSE( records()[1].has_long_key() );

   StreamClient late( streams );
   late.begins();
   settle( late );
   EXPECT_EQ( late.contents(), tree.contents() );
   EXPECT_THAT( late.faults, IsEmpty() );
}

TEST_F( PbrStreamTest, LongKeysComeWithEveryRecordWhereTheyAreAskedFor ) {
   addClasses( 1 );
   StreamClient stateless( streams, true );
   stateless.begins();
   settle( stateless );
   tree.count( "web", "c1", 7 );
   settle( stateless );
   tree.removeClass( "web", "c1" );
   settle( stateless );
   int count = 0;
   for ( const auto & message : stateless.log ) {
      for ( const auto & record : message.batch().records() ) {
         ++count;
         EXPECT_EQ( record.long_key().class_name(), "c1" ) << record.ShortDebugString();
      }
   }
   EXPECT_EQ( count, 3 );
   EXPECT_THAT( stateless.faults, IsEmpty() );
}

TEST_F( PbrStreamTest, OfManyChangesOfOneClassTheLatestIsTold ) {
   addClasses( 1 );
   begins();
   forgetLog();
   tree.count( "web", "c1", 1 );
   settle(); // One is on its way,
   for ( std::uint64_t n = 2; n <= 10; ++n ) {
      tree.count( "web", "c1", n );
      settle(); // and nine are delivered while it is.
   }
   settle( client );
   ASSERT_THAT( records(), SizeIs( 2 ) );
   EXPECT_EQ( records()[0].counters().packets(), 1U );
   EXPECT_EQ( records()[1].counters().packets(), 10U );
}

TEST_F( PbrStreamTest, ADeletionOfAClassThatWasToldIsTold ) {
   addClasses( 2 );
   begins();
   forgetLog();
   const std::uint64_t gone = shortKey( "web", "c1" );
   tree.removeClass( "web", "c1" );
   settle( client );
   ASSERT_THAT( records(), SizeIs( 1 ) );
   EXPECT_TRUE( records()[0].deleted() );
   EXPECT_EQ( records()[0].short_key(), gone );
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, AClassThatCameAndWentUnseenIsNotToldOf ) {
   begins();
   forgetLog();
   tree.addClass( "web", "first" );
   settle(); // On its way, so that nothing else can be sent.
   tree.addClass( "web", "short-lived" );
   settle();
   tree.removeClass( "web", "short-lived" );
   settle();
   settle( client );
   EXPECT_THAT( records(), SizeIs( 1 ) );
}

TEST_F( PbrStreamTest, AClassThatIsBackHasAnotherShortKey ) {
   addClasses( 1 );
   begins();
   tree.removeClass( "web", "c1" );
   tree.addClass( "web", "c1", 5 );
   settle( client );
   EXPECT_EQ( client.contents(), tree.contents() );
   EXPECT_THAT( client.knows().names, SizeIs( 1 ) );
}

TEST_F( PbrStreamTest, ABatchEndsThoughItsClassesGoOnChanging ) {
   addClasses( 20 );
   begins();
   forgetLog();
   loop.yieldsAfter( 4 );
   const auto ended = [this] {
      return !client.log.empty() && client.log.back().batch().end_of_batch();
   };
   for ( std::uint64_t n = 1; !ended(); ++n ) {
      ASSERT_LT( n, 1000U );
      for ( int c = 1; c <= 20; ++c ) { tree.count( "web", "c" + std::to_string( c ), n ); }
      loop.runOne();
      client.takes();
   }
   // Within one batch the keys only grow.
   const auto keys = toldKeys();
   EXPECT_TRUE( std::is_sorted( keys.begin(), keys.end() ) ) << testing::PrintToString( keys );
}

TEST_F( PbrStreamTest, NothingIsToldBeforeTheLibraryPushes ) {
   begins();
   forgetLog();
   using VeloSdkRpc::PbrCounters;
   const VeloSdkRpc::PbrCountersKey key( PolicyMap::Counters::PolicyMapKey( "p" ), "c", {} );
   fanout->appendItem( PbrCounters( 1, key, nullptr, false ), {} );
   settle( client );
   EXPECT_THAT( records(), IsEmpty() );
   fanout->push();
   settle( client );
   EXPECT_THAT( records(), SizeIs( 1 ) );
}

TEST_F( PbrStreamTest, ASlowClientDelaysNobody ) {
   addClasses( 10 );
   StreamClient asleep( streams );
   asleep.begins();
   begins();
   for ( std::uint64_t n = 1; n <= 100; ++n ) {
      tree.count( "web", "c3", n );
      settle( client );
      ASSERT_EQ( client.contents(), tree.contents() );
   }
   settle( asleep ); // Awake again.
   EXPECT_EQ( asleep.contents(), tree.contents() );
   EXPECT_THAT( asleep.faults, IsEmpty() );
}

TEST_F( PbrStreamTest, ClientsTakeTurnsWithinASlice ) {
   addClasses( 100 );
   settle();
   loop.yieldsAfter( 9 );
   StreamClient other( streams );
   client.begins();
   other.begins();
   for ( int n = 0; n < 12; ++n ) {
      loop.runOne();
      client.takes();
      other.takes();
   }
   EXPECT_GT( client.knows().names.size(), 20U );
   EXPECT_GT( other.knows().names.size(), 20U );
}

TEST_F( PbrStreamTest, WhatIsKeptForASleeperIsBoundedByWhatIsThere ) {
   addClasses( 10 );
   begins();
   settle(); // And takes nothing any more:
   tree.count( "web", "c1", 1 );
   settle();
   for ( int n = 0; n < 1000; ++n ) {
      tree.addClass( "web", "brief" );
      tree.count( "web", "c2", static_cast< std::uint64_t >( n ) );
      settle();
      tree.removeClass( "web", "brief" );
      settle();
   }
   const ClientReport report = clients.clients().begin()->second->report();
   EXPECT_LE( report.queue, 10U );
   EXPECT_LE( report.told, 10U );
   EXPECT_LE( fanout->latest().size(), 10U );
}

TEST_F( PbrStreamTest, MessagesStayFarBelowWhatAClientTakesInHoweverLongTheNames ) {
   for ( int n = 1; n <= 100; ++n ) {
      tree.addClass( std::string( 60'000, 'p' ), std::string( 60'000, 'c' ) + std::to_string( n ) );
   }
   begins();
   for ( const auto & message : client.log ) { EXPECT_LT( message.ByteSizeLong(), 1024 * 1024U ); }
   EXPECT_EQ( client.contents(), tree.contents() );
}

TEST_F( PbrStreamTest, AClassWithoutCountersHasNone ) {
   begins();
   forgetLog();
   using VeloSdkRpc::PbrCounters;
   const VeloSdkRpc::PbrCountersKey key( PolicyMap::Counters::PolicyMapKey( "p" ), "c", {} );
   fanout->appendItem( PbrCounters( 1, key, nullptr, false ), {} );
   fanout->push();
   settle( client );
   ASSERT_THAT( records(), SizeIs( 1 ) );
   EXPECT_FALSE( records()[0].has_counters() );
   EXPECT_FALSE( records()[0].deleted() );
}

TEST_F( PbrStreamTest, AClientIsReportedWithItsQueue ) {
   addClasses( 3 );
   client.begins();
   const auto report = [this] { return clients.clients().begin()->second->report(); };
   EXPECT_EQ( report().state, ClientState::snapshot );
   settle( client );
   EXPECT_EQ( report().state, ClientState::inSync );
   EXPECT_EQ( report().told, 3U );
   EXPECT_EQ( report().queue, 0U );
   EXPECT_EQ( report().recordsSent, 3U );
   EXPECT_EQ( report().messagesSent, client.log.size() );
   passes( 250ms );
   EXPECT_EQ( report().idleMs, 250U );
   tree.count( "web", "c1", 1 );
   settle();
   tree.count( "web", "c2", 1 );
   settle();
   EXPECT_EQ( report().queue, 1U ) << "one is on its way, one waits";
   client.breaksOff();
   EXPECT_EQ( report().state, ClientState::away );
}

} // namespace
} // namespace VeloAgent::test
