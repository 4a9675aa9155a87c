/// veloctl run against an agent that says what the test wants.

#pragma once

#include "agent/veloctl/CommandLine.h"
#include "agent/veloctl/test/FakeAgent.h"

#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <vector>

namespace VeloCtl {

struct Outcome {
   int code = -1;
   std::string out;
   std::string err;
};

class VeloctlTest : public testing::Test {
 protected:
   /// Before what handlers write to goes.
   void TearDown() override { agent.close(); }

   /// Runs veloctl with `arguments`, against the fake agent.
   Outcome run( std::vector< std::string > arguments ) {
      arguments.insert( arguments.begin(), { "--agent", agent.address() } );
      agent.synchronize();
      const Outcome outcome = runAnywhere( arguments );
      agent.synchronize();
      return outcome;
   }

   static Outcome runAnywhere( const std::vector< std::string > & arguments ) {
      std::ostringstream out;
      std::ostringstream err;
      const int code = runVeloctl( arguments, { .out = out, .err = err } );
      return { code, out.str(), err.str() };
   }

   /// The one line that a run which ended with `code` has said, without its end.
   std::string complaint( int code, const std::vector< std::string > & arguments ) {
      const Outcome outcome = run( arguments );
      EXPECT_EQ( outcome.code, code ) << outcome.err;
      EXPECT_EQ( outcome.out, "" );
      EXPECT_EQ( std::count( outcome.err.begin(), outcome.err.end(), '\n' ), 1 ) << outcome.err;
      return outcome.err.substr( 0, outcome.err.find( '\n' ) );
   }

   /// What a run that went well has printed.
   std::string output( const std::vector< std::string > & arguments ) {
      const Outcome outcome = run( arguments );
      EXPECT_EQ( outcome.code, 0 );
      EXPECT_EQ( outcome.err, "" );
      return outcome.out;
   }

   /// Serves a method with one request and one answer.
   template< typename Request, typename Response, typename Answer >
   void answer( const std::string & method, Answer answer ) {
      agent.serve( method, [answer]( ServedCall & call ) {
         Request request;
         call.receive( request );
         const Response response = answer( request );
         call.send( response );
      } );
   }

   FakeAgent agent;
};

} // namespace VeloCtl
