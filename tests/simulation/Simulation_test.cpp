// The simulation itself: its scripts are text, it notices mistakes, and tells of them in few lines.

#include <algorithm>
#include <csignal>
#include <iostream>
#include <sstream>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Isolated.h"
#include "Shrink.h"
#include "Simulation.h"

namespace VeloSdkRpc::simulation {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

std::string textOf( const Script & script ) {
   std::ostringstream text;
   text << script;
   return text.str();
}
Script scriptOf( const std::string & text ) {
   std::istringstream lines( text );
   return parsed( lines );
}

// Scripts -----------------------------------------------------------------------------------------

TEST( ScriptTest, IsReadAsItIsWritten ) {
   const Script script = generated( 7, 1000 );
   EXPECT_THAT( script, SizeIs( testing::Ge( 1000U ) ) );
   EXPECT_EQ( scriptOf( textOf( script ) ), script );
}

TEST( ScriptTest, IsTheSameForTheSameSeedOnly ) {
   EXPECT_EQ( generated( 7, 100 ), generated( 7, 100 ) );
   EXPECT_NE( generated( 7, 100 ), generated( 8, 100 ) );
}

TEST( ScriptTest, MayHaveRemarksAndEmptyLines ) {
   EXPECT_THAT( scriptOf( "# why\n\nin call 2: stop 0\nslice 3\n" ),
                ElementsAre( Step{ Verb::stop, 0, 2 }, Step{ Verb::slice, 3 } ) );
}

TEST( ScriptTest, NamesTheLineThatItDoesNotUnderstand ) {
   for ( const std::string line :
         { "jump 3", "slice", "slice 3 4", "in call 3 stop 0", "in call x: stop 0" } ) {
      EXPECT_THAT( [&] { scriptOf( "mount 0\n" + line ); },
                   testing::ThrowsMessage< std::runtime_error >( HasSubstr( "'" + line + "'" ) ) );
   }
}

// Shrinking ---------------------------------------------------------------------------------------

TEST( ShrinkTest, LeavesWhatIsNeededAndMakesItPlain ) {
   Script script = generated( 3, 500 );
   script.insert( script.begin() + 100, Step{ Verb::count, 7, 3 } );
   script.insert( script.begin() + 300, Step{ Verb::stop, 29 } );
   const auto fails = []( const Script & s ) {
      const auto count = std::ranges::find_if(
         s, []( const Step & step ) { return step.verb == Verb::count && step.n % 12 == 7; } );
      return std::any_of( count, s.end(),
                          []( const Step & step ) { return step.verb == Verb::stop; } );
   };
   EXPECT_EQ( textOf( shrunk( script, fails ) ), "count 7\nstop 0\n" );
}

// Processes of their own --------------------------------------------------------------------------

TEST( IsolatedTest, TellsHowItFailed ) {
   EXPECT_EQ( failureOf( [] { return std::string(); }, 10 ), "" );
   EXPECT_EQ( failureOf( [] { return std::string( "so" ); }, 10 ), "so" );
   EXPECT_EQ( failureOf( []() -> std::string { throw std::runtime_error( "thus" ); }, 10 ),
              "thus" );
   EXPECT_EQ( failureOf( []() -> std::string { ::_exit( 3 ); }, 10 ), "exit 3" );
   EXPECT_THAT( failureOf(
                   []() -> std::string {
                      ::raise( SIGKILL );
                      return {};
                   },
                   10 ),
                HasSubstr( "crash: " ) );
   EXPECT_EQ( failureOf(
                 []() -> std::string {
                    for ( ;; ) { ::pause(); }
                 },
                 1 ),
              "it did not end" );
}

TEST( SimulationTest, EverythingHappens ) {
   const auto [all, failure] = simulated( 1, 20'000, 200 );
   EXPECT_FALSE( failure );
   EXPECT_GE( all.steps, 20'000U );
   EXPECT_GE( all.runs, 1'000U );
   EXPECT_GE( all.records, 1'000U );
   EXPECT_GE( all.deedsInCalls, 200U );
   EXPECT_GE( all.streams, 100U );
   EXPECT_GE( all.verdicts, 100U );
}

// Mistakes ----------------------------------------------------------------------------------------

class MistakeTest : public testing::TestWithParam< Mistake > {};

TEST_P( MistakeTest, IsFoundAndToldInFewLines ) {
   const auto failure = simulated( 1, 200'000, 200, GetParam() ).failure;
   ASSERT_TRUE( failure );
   EXPECT_LE( failure->script.size(), 20U ) << failure->what << "\n" << failure->script;
   EXPECT_EQ( failureOf( failure->script, GetParam() ), failure->what );
   EXPECT_EQ( failureOf( failure->script, Mistake::none ), "" );
   std::cout << failure->what << "\n" << failure->script;
}

std::string nameOfMistake( const testing::TestParamInfo< Mistake > & info ) {
   static constexpr const char * kNames[] = { "None", "KeepsWhatARunHasTaken", "DoesNotReconcile",
                                              "LosesWhatWasThrownAt", "ForgetsDeletions" };
   return kNames[static_cast< int >( info.param )];
}

INSTANTIATE_TEST_SUITE_P( Of, MistakeTest,
                          testing::Values( Mistake::keepsWhatARunHasTaken,
                                           Mistake::doesNotReconcile, Mistake::losesWhatWasThrownAt,
                                           Mistake::forgetsDeletions ),
                          nameOfMistake );

} // namespace
} // namespace VeloSdkRpc::simulation
