#include "agent/veloctl/test/VeloctlTest.h"
#include "velo/rpc/v1/introspection.pb.h"

#include <cstdlib>

namespace VeloCtl {
namespace {

using namespace velo::rpc::v1;
using testing::HasSubstr;
using testing::StartsWith;

using CommandLineTest = VeloctlTest;

TEST_F( CommandLineTest, HelpAndVersionAreAnswers ) {
   EXPECT_THAT( output( { "--version" } ), StartsWith( "veloctl " ) );
   EXPECT_THAT( output( { "--help" } ), HasSubstr( "--agent ADDRESS" ) );
   EXPECT_THAT( output( { "show", "--help" } ), HasSubstr( "parked" ) );
}

TEST_F( CommandLineTest, WhatIsMissingOrUnknownIsAnsweredWithWhatThereIs ) {
   EXPECT_EQ( complaint( 2, { "show" } ), "veloctl: what is it to do? veloctl show takes one of "
                                          "status, backlog, tasks, clients, parked" );
   EXPECT_THAT( complaint( 2, { "sohw" } ),
                StartsWith( "veloctl: unknown word \"sohw\": veloctl takes one of " ) );
   EXPECT_EQ(
      complaint( 2, { "show", "status", "--bad" } ),
      "veloctl: unknown argument \"--bad\": veloctl show status --help lists what there is" );
   EXPECT_EQ( complaint( 2, { "show", "status", "--format", "xml" } ),
              "veloctl: --format: \"xml\" is not one of text, json" );
   EXPECT_EQ( complaint( 2, { "show", "status", "--timeout", "1s" } ),
              "veloctl: --timeout: \"1s\" is not a number from 1 to 86400000" );
}

TEST_F( CommandLineTest, OddBytesCannotBreakTheLine ) {
   EXPECT_EQ( complaint( 2, { "show", "a\nb\xff" } ),
              "veloctl: unknown word \"a\\x0ab\\xff\": veloctl show takes one of "
              "status, backlog, tasks, clients, parked" );
}

TEST_F( CommandLineTest, AnAddressIsAPathOrAHostAndAPort ) {
   for ( const std::string wrong : { "localhost", "unix:", "localhost:", "localhost:x", ":1" } ) {
      EXPECT_EQ( runAnywhere( { "--agent", wrong, "show", "status" } ).err,
                 "veloctl: --agent: \"" + wrong +
                    "\" is not unix:PATH or HOST:PORT, for example "
                    "unix:/run/velo-agent/agent.sock\n" );
   }
}

TEST_F( CommandLineTest, TlsOptionsBelongTogetherAndToTcp ) {
   EXPECT_EQ( complaint( 2, { "--ca", "ca.pem", "show", "status" } ),
              "veloctl: --ca, --cert and --key are of use only with --agent HOST:PORT" );
   const auto complaintOverTcp = []( std::vector< std::string > options ) {
      options.insert( options.end(), { "--agent", "localhost:1", "show", "status" } );
      const Outcome outcome = runAnywhere( options );
      EXPECT_EQ( outcome.code, 2 );
      return outcome.err;
   };
   EXPECT_EQ( complaintOverTcp( { "--ca", "ca.pem", "--key", "key.pem" } ),
              "veloctl: --cert and --key belong together: give both or none\n" );
   EXPECT_EQ( complaintOverTcp( { "--cert", "cert.pem", "--key", "key.pem" } ),
              "veloctl: --cert and --key need --ca FILE, to know the agent by\n" );
   EXPECT_EQ( complaintOverTcp( { "--ca", "missing.pem" } ),
              "veloctl: cannot read missing.pem: No such file or directory\n" );
}

TEST_F( CommandLineTest, AnAgentThatIsNotThereHasAnExitCodeOfItsOwn ) {
   const Outcome outcome = runAnywhere( { "--agent", "unix:/nowhere/agent", "show", "status" } );
   EXPECT_EQ( outcome.code, 3 );
   EXPECT_THAT( outcome.err,
                StartsWith( "veloctl: the agent at unix:/nowhere/agent is not available: " ) );
   EXPECT_THAT( outcome.err, HasSubstr( "No such file or directory" ) );
}

TEST_F( CommandLineTest, AnAgentThatDoesNotAnswerHasAnExitCodeOfItsOwn ) {
   agent.serve( "Introspection/GetStatus", []( ServedCall & call ) { call.awaitCancellation(); } );
   EXPECT_EQ( complaint( 4, { "show", "status", "--timeout", "20" } ),
              "veloctl: no answer from " + agent.address() +
                 " within 20 ms; --timeout MS gives it more" );
}

TEST_F( CommandLineTest, WhatTheAgentRefusesIsToldInItsWords ) {
   agent.serve( "Introspection/GetStatus",
                []( ServedCall & ) { throw Refusal( kInvalidArgument, "not that" ); } );
   EXPECT_EQ( complaint( 1, { "show", "status" } ), "veloctl: not that (INVALID_ARGUMENT)" );
}

TEST_F( CommandLineTest, AnAgentThatIsNotReadyIsLikeOneThatIsNotThere ) {
   agent.serve( "Introspection/GetStatus",
                []( ServedCall & ) { throw Refusal( kUnavailable, "not ready yet" ); } );
   EXPECT_EQ( complaint( 3, { "show", "status" } ),
              "veloctl: the agent at " + agent.address() + " is not available: not ready yet" );
}

TEST_F( CommandLineTest, TheEnvironmentNamesTheAgentUnlessAnOptionDoes ) {
   answer< GetStatusRequest, GetStatusResponse >(
      "Introspection/GetStatus", []( const GetStatusRequest & ) { return GetStatusResponse(); } );
   ::setenv( "VELO_AGENT", agent.address().c_str(), 1 );
   EXPECT_EQ( runAnywhere( { "show", "backlog" } ).code, 0 );
   ::setenv( "VELO_AGENT", "unix:/nowhere/agent", 1 );
   EXPECT_EQ( runAnywhere( { "show", "backlog" } ).code, 3 );
   EXPECT_EQ( run( { "show", "backlog" } ).code, 0 );
   ::unsetenv( "VELO_AGENT" );
}

TEST_F( CommandLineTest, AnOutputThatTakesNothingIsAFailure ) {
   std::ostringstream err;
   std::ostream broken( nullptr );
   EXPECT_EQ( runVeloctl( { "--version" }, { .out = broken, .err = err } ), 1 );
   EXPECT_EQ( err.str(), "veloctl: cannot write to standard output\n" );
}

} // namespace
} // namespace VeloCtl
