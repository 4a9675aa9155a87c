#include "agent/veloctl/Commands.h"

#include "agent/NumberText.h"
#include "agent/veloctl/Failures.h"

#include <fmt/format.h>
#include <utility>

namespace VeloCtl {

Commands Commands::group( const std::string & name, const std::string & help, Listed inHelp ) {
   CLI::App & group = *app_.add_subcommand( name, help );
   if ( inHelp == hidden ) { group.group( "" ); }
   group.require_subcommand( 1 );
   return { group, chosen_ };
}

CLI::App & Commands::add( const std::string & name, const std::string & help, Action action ) {
   CLI::App & command = *app_.add_subcommand( name, help );
   command.callback( [&chosen = chosen_, action = std::move( action )] { chosen = action; } );
   return command;
}

std::uint64_t numberFrom( const std::string & name, const std::string & given, std::uint64_t least,
                          std::uint64_t most ) {
   const auto number = VeloAgent::numberFrom( given, least, most );
   if ( !number ) {
      throw WrongUse(
         fmt::format( "{}: \"{}\" is not a number from {} to {}", name, given, least, most ) );
   }
   return *number;
}

CLI::Option * addNumber( CLI::App & app, const std::string & name, const std::string & help,
                         std::uint64_t least, std::uint64_t most,
                         std::function< void( std::uint64_t ) > take ) {
   const auto takeText = [=, take = std::move( take )]( const std::string & given ) {
      take( numberFrom( name, given, least, most ) );
   };
   return app.add_option_function< std::string >( name, takeText, help )->type_name( "N" );
}

} // namespace VeloCtl
