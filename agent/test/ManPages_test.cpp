#include "agent/Options.h"
#include "agent/veloctl/CommandLine.h"

#include <CLI/App.hpp>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>

namespace VeloAgent {
namespace {

using Names = std::set< std::string >;

std::string page( const std::string & name ) {
   std::ifstream file( std::string( VELO_MAN_DIRECTORY "/" ) + name );
   std::ostringstream text;
   text << file.rdbuf();
   return text.str();
}

/// Everything that `pattern` finds; its first group counts.
Names allIn( const std::string & text, const char * pattern ) {
   const std::regex regex( pattern );
   Names names;
   for ( std::sregex_iterator at( text.begin(), text.end(), regex ), end; at != end; ++at ) {
      names.insert( ( *at )[1] );
   }
   return names;
}

/// The options that a page is about: those at the head of an entry.
Names optionsOnPage( const std::string & name ) {
   return allIn( page( name ), R"re(\n\.It Fl Fl ([a-z-]+))re" );
}

void collect( const CLI::App & app, const std::string & path, Names & options, Names & commands ) {
   for ( const CLI::Option * const option : app.get_options() ) {
      for ( const std::string & name : option->get_lnames() ) { options.insert( name ); }
   }
   for ( const CLI::App * const command : app.get_subcommands( {} ) ) {
      if ( command->get_group().empty() ) { continue; }
      const std::string name = path + command->get_name();
      if ( command->get_subcommands( {} ).empty() ) { commands.insert( name ); }
      collect( *command, name + ' ', options, commands );
   }
}

TEST( ManPages, VeloAgentHasTheOptionsThatItsPageSays ) {
   const Names options = allIn( optionsFrom( { "--help" } ).answer.value(), "--([a-z-]+)" );
   EXPECT_EQ( optionsOnPage( "velo-agent.8" ), options );
}

TEST( ManPages, VeloctlHasTheOptionsAndSubcommandsThatItsPageSays ) {
   std::ostringstream out;
   VeloCtl::Session session( { .out = out, .err = out } );
   VeloCtl::Action chosen;
   CLI::App app;
   VeloCtl::describe( app, session, chosen );
   Names options;
   Names commands;
   collect( app, "", options, commands );

   const std::string text = page( "veloctl.1" );
   Names onPage = allIn( text, "Fl Fl ([a-z-]+)" );
   onPage.erase( "record" ); // of velo-agent
   EXPECT_EQ( onPage, options );
   EXPECT_EQ( allIn( text, R"re(\n\.It Nm Cm ([a-z]+(?: [a-z-]+)*))re" ), commands );
}

} // namespace
} // namespace VeloAgent
