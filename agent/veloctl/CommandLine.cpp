#include "agent/veloctl/CommandLine.h"

#include "agent/Printable.h"
#include "agent/veloctl/Completion.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Get.h"
#include "agent/veloctl/Overrides.h"
#include "agent/veloctl/Publish.h"
#include "agent/veloctl/Replay.h"
#include "agent/veloctl/Resync.h"
#include "agent/veloctl/Show.h"
#include "agent/veloctl/Watch.h"
#include "agent/veloctl/Weights.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <ostream>

namespace VeloCtl {

namespace {

constexpr const char * kAbout = "Looks into a running velo-agent and tells it what to do.";

constexpr const char * kFooter = R"(
Exit codes: 0 done; 1 the agent refused or failed, or the output could not be written; 2 an argument
or a file was wrong; 3 the agent is not available: try again later; 4 no answer in time.)";

constexpr std::uint64_t kMostMilliseconds = 1'000ULL * 3600 * 24;

/// The subcommand that was meant, as far as the command line got.
const CLI::App & deepest( const CLI::App & app ) {
   const CLI::App * found = &app;
   while ( !found->get_subcommands().empty() ) { found = found->get_subcommands().front(); }
   return *found;
}

/// "veloctl show status"
std::string nameOf( const CLI::App & app ) {
   return app.get_parent() ? nameOf( *app.get_parent() ) + ' ' + app.get_name() : app.get_name();
}

std::string helpOf( const CLI::App & app ) { return nameOf( app ) + " --help"; }

std::string subcommandsOf( const CLI::App & app ) {
   std::vector< std::string > names;
   for ( const CLI::App * const command : app.get_subcommands( {} ) ) {
      if ( !command->get_group().empty() ) { names.push_back( command->get_name() ); }
   }
   return fmt::format( "{}", fmt::join( names, ", " ) );
}

[[noreturn]] void refuseMissing( const CLI::App & app, const std::string & error ) {
   const CLI::App & command = deepest( app );
   if ( command.get_require_subcommand_min() == 0 ) {
      throw WrongUse( fmt::format( "{}; see {}", error, helpOf( command ) ) );
   }
   const std::vector< std::string > unknown = app.remaining( true );
   const std::string what = unknown.empty()
                               ? "what is it to do?"
                               : fmt::format( "unknown word \"{}\":", unknown.front() );
   throw WrongUse(
      fmt::format( "{} {} takes one of {}", what, nameOf( command ), subcommandsOf( command ) ) );
}

/// Ends in an answer for --help and --version; throws WrongUse for what is wrong.
std::optional< std::string > parse( CLI::App & app, std::vector< std::string > arguments ) {
   std::reverse( arguments.begin(), arguments.end() ); // as CLI11 wants them
   try {
      app.parse( std::move( arguments ) );
      return std::nullopt;
   } catch ( const CLI::CallForHelp & ) {
      return app.help();
   } catch ( const CLI::CallForVersion & version ) {
      return std::string( version.what() ) + '\n';
   } catch ( const CLI::RequiredError & error ) {
      refuseMissing( app, error.what() );
   } catch ( const CLI::ExtrasError & ) {
      throw WrongUse( fmt::format( "unknown argument \"{}\": {} lists what there is",
                                   app.remaining( true ).front(), helpOf( deepest( app ) ) ) );
   } catch ( const CLI::ParseError & error ) {
      throw WrongUse( fmt::format( "{}; see {}", error.what(), helpOf( deepest( app ) ) ) );
   }
}

int complain( std::ostream & err, const std::exception & error, ExitCode code ) {
   err << "veloctl: " << VeloAgent::printable( error.what() ) << std::endl;
   return static_cast< int >( code );
}

} // namespace

void describe( CLI::App & app, Session & session, Action & chosen ) {
   app.name( "veloctl" );
   app.footer( kFooter );
   app.set_version_flag( "--version", std::string( "veloctl " ) + VELO_AGENT_VERSION );
   app.require_subcommand( 1 );
   app.fallthrough();

   AgentAddress & address = session.address;
   const std::string shared = "Options of all subcommands";
   app.add_option( "--agent", address.address,
                   "unix:PATH or HOST:PORT (where an agent listens by default)" )
      ->type_name( "ADDRESS" )
      ->envname( "VELO_AGENT" )
      ->group( shared );
   app.add_option( "--ca", address.ca, "TLS: who signs the agent's certificate" )
      ->type_name( "FILE" )
      ->group( shared );
   app.add_option( "--cert", address.certificate, "TLS: our own certificate" )
      ->type_name( "FILE" )
      ->group( shared );
   app.add_option( "--key", address.key, "TLS: the key of our certificate" )
      ->type_name( "FILE" )
      ->group( shared );
   addNumber( app, "--timeout", "How long the agent may take to answer (10000)", 1,
              kMostMilliseconds,
              [&address]( std::uint64_t n ) { address.timeout = std::chrono::milliseconds( n ); } )
      ->type_name( "MS" )
      ->group( shared );
   const auto takeFormat = [&session]( const std::string & given ) {
      if ( given != "text" && given != "json" ) {
         throw WrongUse( fmt::format( "--format: \"{}\" is not one of text, json", given ) );
      }
      session.format = given == "json" ? Format::json : Format::text;
   };
   app.add_option_function< std::string >( "--format", takeFormat,
                                           "For people or for programs (text)" )
      ->type_name( "text|json" )
      ->group( shared );

   Commands commands( app, chosen );
   addWatch( commands );
   addGet( commands );
   addShow( commands );
   addWeights( commands );
   addOverrides( commands );
   addResync( commands );
   addPublish( commands );
   addReplay( commands );
   addCompletion( commands, app );
}

int runVeloctl( const std::vector< std::string > & arguments, const Streams & streams ) {
   try {
      Session session( streams );
      Action chosen;
      CLI::App app( kAbout );
      describe( app, session, chosen );
      if ( const auto answer = parse( app, arguments ) ) {
         streams.out << *answer;
      } else {
         chosen( session );
      }
      if ( !streams.out.flush() ) {
         throw Failure( ExitCode::refused, "cannot write to standard output" );
      }
      return static_cast< int >( ExitCode::done );
   } catch ( const Failure & failure ) {
      return complain( streams.err, failure, failure.code() );
   } catch ( const std::exception & error ) {
      return complain( streams.err, error, ExitCode::refused );
   }
}

} // namespace VeloCtl
