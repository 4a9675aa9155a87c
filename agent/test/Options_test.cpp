#include "agent/Options.h"

#include "agent/test/TemporaryDirectory.h"

#include <fstream>
#include <gmock/gmock.h>

namespace VeloAgent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Arguments = std::vector< std::string >;

std::string complaintAbout( const Arguments & arguments ) {
   try {
      optionsFrom( arguments );
   } catch ( const OptionsError & error ) { return error.what(); }
   return "none";
}

TEST( Options, WithoutAnyTheSyntheticSourceStreamsJson ) {
   const Options options = optionsFrom( {} );
   EXPECT_EQ( options.source, SourceKind::synthetic );
   EXPECT_EQ( options.format, OutputFormat::json );
   EXPECT_EQ( options.synthetic.policies, 10U );
   EXPECT_EQ( options.synthetic.classes, 10U );
   EXPECT_EQ( options.synthetic.changesPerSecond, 100U );
   EXPECT_EQ( options.synthetic.churnPercent, 5U );
   EXPECT_EQ( options.synthetic.seed, 1U );
   EXPECT_FALSE( options.duration );
   EXPECT_FALSE( options.maxRecords );
   EXPECT_FALSE( options.answer );
}

TEST( Options, TheSyntheticSourceTakesItsNumbers ) {
   const Options options =
      optionsFrom( { "--source", "synthetic", "--policies", "3", "--classes=4", "--rate", "0",
                     "--churn", "100", "--seed", "18446744073709551615" } );
   EXPECT_EQ( options.synthetic.policies, 3U );
   EXPECT_EQ( options.synthetic.classes, 4U );
   EXPECT_EQ( options.synthetic.changesPerSecond, 0U );
   EXPECT_EQ( options.synthetic.churnPercent, 100U );
   EXPECT_EQ( options.synthetic.seed, UINT64_MAX );
}

TEST( Options, TheNftablesSourceTakesItsTable ) {
   const Options options =
      optionsFrom( { "--source", "nftables", "--table", "inet/pbr", "--interval", "250" } );
   EXPECT_EQ( options.source, SourceKind::nftables );
   EXPECT_EQ( options.table.family, "inet" );
   EXPECT_EQ( options.table.name, "pbr" );
   EXPECT_EQ( options.interval, 250ms );
   EXPECT_EQ( optionsFrom( { "--source", "nftables", "--table", "ip/a" } ).interval, 1000ms );
}

TEST( Options, WithoutASourceNoOptionOfASourceIsOfUse ) {
   EXPECT_EQ( optionsFrom( { "--source", "none" } ).source, SourceKind::none );
   EXPECT_EQ( complaintAbout( { "--source", "none", "--rate", "1" } ),
              "--rate is of use only with --source synthetic" );
   EXPECT_EQ( complaintAbout( { "--source", "none", "--table", "inet/t" } ),
              "--table is of use only with --source nftables" );
}

TEST( Options, WithoutLinesThereAreNoRecordsToBeCounted ) {
   EXPECT_EQ( optionsFrom( { "--format", "none" } ).format, OutputFormat::none );
   EXPECT_EQ( complaintAbout( { "--format", "none", "--max-records", "1" } ),
              "--max-records is of use only with --format json or text" );
}

TEST( Options, ATableNameMayHoldSlashesAndSpaces ) {
   EXPECT_EQ( optionsFrom( { "--source", "nftables", "--table", "ip/a/b; c" } ).table.name,
              "a/b; c" );
}

TEST( Options, EveryFamilyIsKnown ) {
   for ( const std::string family : { "ip", "ip6", "inet", "arp", "bridge", "netdev" } ) {
      EXPECT_EQ( optionsFrom( { "--source", "nftables", "--table", family + "/t" } ).table.family,
                 family );
   }
}

TEST( Options, ARunCanBeBoundedAndItsFormatChosen ) {
   const Options options =
      optionsFrom( { "--format", "text", "--duration", "1500", "--max-records", "10" } );
   EXPECT_EQ( options.format, OutputFormat::text );
   EXPECT_EQ( options.duration, 1500ms );
   EXPECT_EQ( options.maxRecords, 10U );
}

TEST( Options, HelpAndVersionAreAnswers ) {
   const std::string help = optionsFrom( { "--help" } ).answer.value();
   for ( const char * option : { "--source synthetic|nftables|none",
                                 "--policies N",
                                 "--classes N",
                                 "--rate N",
                                 "--churn PERCENT",
                                 "--seed N",
                                 "--table FAMILY/NAME",
                                 "--interval MS",
                                 "--format json|text|none",
                                 "--duration MS",
                                 "--max-records N",
                                 "--version",
                                 "--config FILE",
                                 "--listen ADDRESS",
                                 "--tls-cert FILE",
                                 "--tls-key FILE",
                                 "--tls-client-ca FILE",
                                 "--max-message BYTES",
                                 "--max-streams N",
                                 "--max-connections N",
                                 "--keepalive-time MS",
                                 "--keepalive-timeout MS",
                                 "--resume-time MS",
                                 "--stall-time MS",
                                 "--drain-time MS",
                                 "--max-clients N",
                                 "--undo-records N",
                                 "--records-per-message N",
                                 "--metrics HOST:PORT",
                                 "--record FILE" } ) {
      EXPECT_THAT( help, HasSubstr( option ) );
   }
   EXPECT_THAT( optionsFrom( { "--version" } ).answer.value(), StartsWith( "velo-agent " ) );
}

TEST( Options, AWrongWordIsAnsweredWithTheRightOnes ) {
   EXPECT_EQ( complaintAbout( { "--source", "kernel" } ),
              "--source: \"kernel\" is not one of synthetic, nftables, none" );
   EXPECT_EQ( complaintAbout( { "--format", "xml" } ),
              "--format: \"xml\" is not one of json, text, none" );
}

TEST( Options, AWrongNumberIsAnsweredWithItsRange ) {
   EXPECT_EQ( complaintAbout( { "--policies", "0" } ),
              "--policies: \"0\" is not a number from 1 to 10000000" );
   EXPECT_EQ( complaintAbout( { "--classes", "many" } ),
              "--classes: \"many\" is not a number from 1 to 10000000" );
   EXPECT_EQ( complaintAbout( { "--rate", "1.5" } ),
              "--rate: \"1.5\" is not a number from 0 to 10000000" );
   EXPECT_EQ( complaintAbout( { "--churn", "101" } ),
              "--churn: \"101\" is not a number from 0 to 100" );
   EXPECT_EQ( complaintAbout( { "--seed", "18446744073709551616" } ),
              "--seed: \"18446744073709551616\" is not a number from 0 to 18446744073709551615" );
   EXPECT_EQ( complaintAbout( { "--seed=-1" } ),
              "--seed: \"-1\" is not a number from 0 to 18446744073709551615" );
   EXPECT_EQ( complaintAbout( { "--max-records", "0" } ),
              "--max-records: \"0\" is not a number from 1 to 18446744073709551615" );
   EXPECT_EQ( complaintAbout( { "--duration", "" } ),
              "--duration: \"\" is not a number from 1 to 31536000000" );
   EXPECT_EQ( complaintAbout( { "--source", "nftables", "--table", "ip/t", "--interval", "1s" } ),
              "--interval: \"1s\" is not a number from 1 to 31536000000" );
}

TEST( Options, TooManyClassesInAllAreRefused ) {
   EXPECT_EQ( complaintAbout( { "--policies", "10000", "--classes", "1001" } ),
              "--policies times --classes is 10010000: at most 10000000 classes in all" );
}

TEST( Options, ATableThatIsNoneIsAnsweredWithAnExample ) {
   for ( const std::string wrong : { "inet", "inet/", "" } ) {
      EXPECT_EQ( complaintAbout( { "--source", "nftables", "--table", wrong } ),
                 "--table: \"" + wrong + "\" is not FAMILY/NAME, for example inet/filter" );
   }
}

TEST( Options, AnUnknownFamilyIsAnsweredWithTheKnownOnes ) {
   EXPECT_EQ( complaintAbout( { "--source", "nftables", "--table", "ipx/t" } ),
              "--table: unknown family \"ipx\": "
              "FAMILY is one of ip, ip6, inet, arp, bridge, netdev" );
}

TEST( Options, TheNftablesSourceNeedsATable ) {
   EXPECT_EQ( complaintAbout( { "--source", "nftables" } ),
              "--source nftables needs --table FAMILY/NAME, for example inet/filter" );
}

TEST( Options, AnOptionOfTheOtherSourceIsRefused ) {
   EXPECT_EQ( complaintAbout( { "--table", "inet/t" } ),
              "--table is of use only with --source nftables" );
   EXPECT_EQ( complaintAbout( { "--source", "nftables", "--table", "inet/t", "--seed", "1" } ),
              "--seed is of use only with --source synthetic" );
}

TEST( Options, WhatIsUnknownIsNamed ) {
   EXPECT_EQ( complaintAbout( { "--colour" } ),
              "unknown argument \"--colour\": velo-agent --help lists what there is" );
   EXPECT_EQ( complaintAbout( { "extra" } ),
              "unknown argument \"extra\": velo-agent --help lists what there is" );
}

TEST( Options, AMissingOrRepeatedValueIsNamed ) {
   EXPECT_EQ( complaintAbout( { "--rate" } ),
              "--rate: 1 required N missing; an option takes one value and is given once" );
   EXPECT_EQ(
      complaintAbout( { "--rate", "1", "--rate", "2" } ),
      "--rate: At Most 1 required but received 2; an option takes one value and is given once" );
}

TEST( Options, WhoIsServedCanBeChosen ) {
   const Options options = optionsFrom(
      { "--listen", "[::1]:50051", "--tls-cert", "c.pem", "--tls-key", "k.pem", "--tls-client-ca",
        "a.pem", "--max-message", "2048", "--max-streams", "7", "--max-connections", "8",
        "--keepalive-time", "1000", "--keepalive-timeout", "500" } );
   EXPECT_EQ( options.rpc.listen, "[::1]:50051" );
   EXPECT_EQ( options.rpc.tls.certificate, "c.pem" );
   EXPECT_EQ( options.rpc.tls.key, "k.pem" );
   EXPECT_EQ( options.rpc.tls.clientCa, "a.pem" );
   EXPECT_EQ( options.rpc.limits.messageBytes, 2048U );
   EXPECT_EQ( options.rpc.limits.streams, 7U );
   EXPECT_EQ( options.rpc.limits.connections, 8U );
   EXPECT_EQ( options.rpc.limits.keepaliveTime, 1000ms );
   EXPECT_EQ( options.rpc.limits.keepaliveTimeout, 500ms );
}

TEST( Options, WhatStreamsMayCostCanBeChosen ) {
   const Options options =
      optionsFrom( { "--resume-time", "1", "--stall-time", "2", "--drain-time", "3",
                     "--max-clients", "4", "--undo-records", "0", "--records-per-message", "6" } );
   EXPECT_EQ( options.stream.resumeTime, 1ms );
   EXPECT_EQ( options.stream.stallTime, 2ms );
   EXPECT_EQ( options.stream.drainTime, 3ms );
   EXPECT_EQ( options.stream.mostClients, 4U );
   EXPECT_EQ( options.stream.undoRecords, 0U );
   EXPECT_EQ( options.stream.recordsPerMessage, 6U );
}

TEST( Options, MetricsAndARecordingCanBeAskedFor ) {
   const Options options = optionsFrom( { "--metrics", "[::1]:9464", "--record", "there" } );
   EXPECT_EQ( options.metricsAddress, "[::1]:9464" );
   EXPECT_EQ( options.recordFile, "there" );
   EXPECT_EQ( complaintAbout( { "--metrics", "unix:/a" } ),
              "--metrics: \"unix:/a\" is not HOST:PORT, for example 127.0.0.1:9464" );
}

TEST( Options, AnAddressThatIsNoneIsAnsweredWithTheForms ) {
   EXPECT_EQ( complaintAbout( { "--listen", "/run/a.sock" } ),
              "--listen: \"/run/a.sock\" is not none, unix:PATH or HOST:PORT, for example "
              "unix:/run/velo-agent/agent.sock" );
}

TEST( Options, TlsIsForTcpAndNeedsBothFiles ) {
   EXPECT_EQ( complaintAbout( { "--tls-cert", "c.pem", "--tls-key", "k.pem" } ),
              "--tls-cert is of use only with --listen HOST:PORT" );
   EXPECT_EQ( complaintAbout( { "--listen", "unix:/a", "--tls-client-ca", "a.pem" } ),
              "--tls-client-ca is of use only with --listen HOST:PORT" );
   EXPECT_EQ( complaintAbout( { "--listen", "a:1", "--tls-cert", "c.pem" } ),
              "--tls-cert and --tls-key are given together or not at all" );
   EXPECT_EQ( complaintAbout( { "--listen", "a:1", "--tls-client-ca", "a.pem" } ),
              "--tls-client-ca is of use only with --tls-cert and --tls-key" );
   EXPECT_EQ( complaintAbout( { "--listen", "a:1", "--tls-cert", "" } ),
              "--tls-cert: \"\" is not the name of a file" );
}

class ConfiguredOptions : public testing::Test {
 protected:
   /// The options with a configuration file of these lines, and `arguments` besides.
   Options with( const std::string & lines, Arguments arguments = {} ) const {
      std::ofstream( file ) << lines;
      arguments.insert( arguments.end(), { "--config", file } );
      return optionsFrom( arguments );
   }

   std::string complaint( const std::string & lines, const Arguments & arguments = {} ) const {
      try {
         with( lines, arguments );
      } catch ( const OptionsError & error ) { return error.what(); }
      return "none";
   }

   const TemporaryDirectory directory;
   const std::string file = directory / "velo.conf";
};

TEST_F( ConfiguredOptions, AFileSaysTheSameAsTheCommandLine ) {
   const Options options = with( "source = nftables\ntable = inet/pbr\ninterval = 250\n"
                                 "format = text\nduration = 1500\nmax-records = 10\n"
                                 "listen = 127.0.0.1:0\nmax-connections = 8\n" );
   EXPECT_EQ( options.source, SourceKind::nftables );
   EXPECT_EQ( options.table.name, "pbr" );
   EXPECT_EQ( options.interval, 250ms );
   EXPECT_EQ( options.format, OutputFormat::text );
   EXPECT_EQ( options.duration, 1500ms );
   EXPECT_EQ( options.maxRecords, 10U );
   EXPECT_EQ( options.rpc.listen, "127.0.0.1:0" );
   EXPECT_EQ( options.rpc.limits.connections, 8U );
}

/// Whatever --help lists can stand in a file: there it is refused for its value, not for its name.
TEST_F( ConfiguredOptions, EveryOptionOfTheHelpIsKnown ) {
   const std::string help = optionsFrom( { "--help" } ).answer.value();
   int seen = 0;
   for ( std::size_t at = help.find( "\n  --" ); at != help.npos;
         at = help.find( "\n  --", at + 1 ) ) {
      const std::size_t begin = at + 5;
      const std::string name = help.substr( begin, help.find_first_of( " ,\n", begin ) - begin );
      if ( name == "version" || name == "config" ) { continue; }
      EXPECT_THAT( complaint( name + " = \"\"" ),
                   StartsWith( file + ":1: --" + name + ": \"\" is not " ) );
      ++seen;
   }
   EXPECT_GE( seen, 28 );
}

TEST_F( ConfiguredOptions, TheCommandLineGoesFirst ) {
   EXPECT_EQ( with( "rate = 5\nseed = 6\n", { "--rate", "7" } ).synthetic.changesPerSecond, 7U );
   EXPECT_EQ( with( "rate = 5\nseed = 6\n", { "--rate", "7" } ).synthetic.seed, 6U );
}

TEST_F( ConfiguredOptions, AnErrorNamesFileAndLine ) {
   EXPECT_EQ( complaint( "# mine\nrate = fast\n" ),
              file + ":2: --rate: \"fast\" is not a number from 0 to 10000000" );
   EXPECT_EQ( complaint( "\ncolour = red\n" ),
              file + ":2: unknown option \"colour\": velo-agent --help lists what there is, to be "
                     "written without its dashes" );
   EXPECT_EQ( complaint( "config = more.conf" ).find( file + ":1: unknown option" ), 0U );
   EXPECT_EQ( complaint( "rate = 1\ntable = inet/t\n" ),
              file + ":2: --table is of use only with --source nftables" );
}

TEST_F( ConfiguredOptions, AFileThatCannotBeReadIsNamed ) {
   EXPECT_EQ( complaintAbout( { "--config", "/nowhere/velo.conf" } ),
              "--config: cannot read /nowhere/velo.conf: No such file or directory" );
}

TEST( Options, EveryComplaintIsOneLine ) {
   for ( const Arguments & wrong :
         { Arguments{ "--rate" }, Arguments{ "--rate", "1", "--rate", "2" }, Arguments{ "a", "b" },
           Arguments{ "--source" } } ) {
      EXPECT_THAT( complaintAbout( wrong ), Not( HasSubstr( "\n" ) ) );
      EXPECT_NE( complaintAbout( wrong ), "none" );
   }
}

} // namespace
} // namespace VeloAgent
