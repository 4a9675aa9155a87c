#include "agent/metrics/Metrics.h"

#include "agent/Inspection.h"
#include "agent/ProcessScheduler.h"
#include "agent/TreeWriter.h"
#include "agent/metrics/LoopCollectable.h"
#include "agent/metrics/MetricFamilies.h"
#include "agent/stream/WatchingClients.h"

#include <cctype>
#include <gmock/gmock.h>
#include <prometheus/text_serializer.h>
#include <set>
#include <sstream>
#include <thread>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;
using prometheus::MetricFamily;
using prometheus::MetricType;
using testing::HasSubstr;
using testing::MatchesRegex;

struct SomeClient final : WatchingClient {
   ClientReport report() const override { return { .peer = "unix:", .queue = 3, .told = 5 }; }
};

struct Consumer final : VeloSdkRpc::PbrCountersFrontend {
   void appendItem( const VeloSdkRpc::PbrCounters &,
                    VeloSdkRpc::PbrCountersEncodingFlags ) override {}
   void push() override {}
};

/// An agent's parts, mounted, without a loop that runs.
class MetricFamiliesTest : public testing::Test {
 protected:
   MetricFamiliesTest() {
      managers.mount();
      clients.enter( client );
      clients.enter( another );
   }

   std::vector< MetricFamily > families() const { return metricFamiliesOf( inspection ); }

   /// The value of the one metric of that name and text of labels, as it is served.
   std::string served() const { return prometheus::TextSerializer().Serialize( families() ); }

   const ProcessScheduler scheduler;
   const Lumo::Ptr< TreeWriter::Root > root = Lumo::makeNode< TreeWriter::Root >();
   Managers managers{ root };
   SomeClient client, another;
   WatchingClients clients;
   Inspection inspection{ managers, **scheduler, clients };
   const Lumo::Ptr< TreeWriter > writer =
      Lumo::makeNode< TreeWriter >( *scheduler, root, []( const std::string & ) {} );
};

TEST_F( MetricFamiliesTest, NamesFollowTheConventions ) {
   std::set< std::string > names;
   for ( const MetricFamily & family : families() ) {
      SCOPED_TRACE( family.name );
      EXPECT_THAT( family.name, MatchesRegex( "velo_agent_[a-z]+(_[a-z]+)*" ) );
      EXPECT_TRUE( names.insert( family.name ).second ) << "twice";
      EXPECT_EQ( family.name.ends_with( "_total" ), family.type == MetricType::Counter );
      EXPECT_THAT( family.help, MatchesRegex( "[A-Z0-9].*\\." ) );
      for ( const char * unit : { "_ms", "_us", "_milliseconds", "_microseconds", "_kilobytes" } ) {
         EXPECT_FALSE( family.name.ends_with( unit ) ) << "base units only";
      }
   }
   EXPECT_GE( names.size(), 20U );
}

TEST_F( MetricFamiliesTest, NoTwoValuesHaveTheSameLabels ) {
   const auto twin = Lumo::makeNode< TreeWriter >( *scheduler, root, []( const std::string & ) {} );
   for ( const MetricFamily & family : families() ) {
      std::set< std::vector< prometheus::ClientMetric::Label > > labels;
      for ( const auto & metric : family.metric ) {
         EXPECT_TRUE( labels.insert( metric.label ).second ) << family.name;
      }
   }
}

TEST_F( MetricFamiliesTest, ValuesAreThoseOfTheAgent ) {
   writer->apply( { CountersSet{ "p", "a", {} }, CountersSet{ "p", "b", {} } }, [] {} );
   ( *scheduler )->runUntilIdle();
   inspection.readyIs( true );
   const std::string text = served();
   EXPECT_THAT( text, HasSubstr( "\nvelo_agent_ready 1\n" ) );
   EXPECT_THAT( text, HasSubstr( "\nvelo_agent_pbr_short_keys 2\n" ) );
   EXPECT_THAT( text, HasSubstr( "\nvelo_agent_pbr_short_keys_assigned_total 2\n" ) );
   EXPECT_THAT( text,
                HasSubstr( "velo_agent_task_work_items_total{task=\"CounterTreeWriter\"} 2" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_mount_present{path=\"policyMap/counters/pbr\"} 1" ) );
   EXPECT_THAT( text,
                HasSubstr( "velo_agent_clients{stream=\"pbr_counters\",state=\"snapshot\"} 2" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_client_queue_keys{stream=\"pbr_counters\"} 6" ) );
}

TEST_F( MetricFamiliesTest, WhatBecameOfTheRecordsIsCounted ) {
   auto & counters = managers.pbrCounters();
   counters.startWatching( Lumo::makeNode< Consumer >() );
   ( *scheduler )->runUntilIdle();
   const auto & backlog = counters.backlog();
   const auto record = []( std::uint64_t shortKey, bool deleted ) {
      return VeloSdkRpc::PbrCounters( shortKey, {}, nullptr, deleted );
   };
   backlog->backlogIs( record( 7, false ) );
   backlog->backlogIs( record( 7, true ) );
   backlog->backlogIs( record( 8, false ) );
   backlog->backlogDel( 8 );
   ( *scheduler )->runUntilIdle();
   backlog->backlogIs( record( 9, false ) );
   const std::string text = served();
   EXPECT_THAT( text, HasSubstr( "\nvelo_agent_pbr_records_arrived_total 4\n" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_pbr_records_total{fate=\"delivered\"} 1" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_pbr_records_total{fate=\"coalesced\"} 1" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_pbr_records_total{fate=\"cancelled\"} 1" ) );
   EXPECT_THAT( text, HasSubstr( "velo_agent_pbr_records_total{fate=\"dropped\"} 0" ) );
   EXPECT_THAT( text, HasSubstr( "\nvelo_agent_pbr_backlog_records 1\n" ) );
}

class LoopCollectableTest : public testing::Test {
 protected:
   using Families = LoopCollectable::Families;

   std::shared_ptr< LoopCollectable > collectable( std::chrono::milliseconds patience ) {
      return std::make_shared< LoopCollectable >(
         loop,
         [this] {
            collectedOn = std::this_thread::get_id();
            return Families( 1 );
         },
         patience );
   }

   static double answering( const Families & families ) {
      EXPECT_EQ( families.back().name, "velo_agent_loop_answering" );
      return families.back().metric.at( 0 ).gauge.value;
   }

   const ProcessScheduler scheduler;
   EventLoop loop{ *scheduler };
   std::thread::id collectedOn;
};

TEST_F( LoopCollectableTest, TheLoopIsAskedAndAnswers ) {
   const auto asked = collectable( 60s );
   Families families;
   std::thread exposer( [&] {
      families = asked->Collect();
      loop.stop();
   } );
   loop.run();
   exposer.join();
   EXPECT_EQ( families.size(), 2U );
   EXPECT_EQ( answering( families ), 1 );
   EXPECT_EQ( collectedOn, std::this_thread::get_id() );
}

TEST_F( LoopCollectableTest, ALoopThatDoesNotAnswerIsNotWaitedForForEver ) {
   const auto asked = collectable( 1ms );
   const Families families = asked->Collect();
   EXPECT_EQ( families.size(), 1U );
   EXPECT_EQ( answering( families ), 0 );
   EXPECT_EQ( collectedOn, std::thread::id() );
}

TEST_F( LoopCollectableTest, ClosedItMakesNobodyWait ) {
   const auto asked = collectable( 1h );
   Families families;
   std::thread exposer( [&] { families = asked->Collect(); } );
   asked->close();
   exposer.join();
   EXPECT_EQ( answering( families ), 0 );
}

TEST_F( LoopCollectableTest, AnAddressThatIsTakenIsNamed ) {
   const Lumo::Ptr< TreeWriter::Root > root = Lumo::makeNode< TreeWriter::Root >();
   Managers managers( root );
   const WatchingClients clients;
   const Inspection inspection( managers, **scheduler, clients );
   const Metrics first( loop, inspection, "127.0.0.1:0" );
   const std::string address = "127.0.0.1:" + std::to_string( first.port() );
   try {
      Metrics( loop, inspection, address );
      FAIL() << "it was taken";
   } catch ( const std::runtime_error & error ) {
      EXPECT_EQ( error.what(), "cannot serve metrics at " + address +
                                  ": the port is taken, or this machine has no such address" );
   }
}

} // namespace
} // namespace VeloAgent
