#include "agent/OptionsParser.h"

#include "agent/NumberText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace VeloAgent {

namespace {

constexpr const char * kConfig = "--config";

} // namespace

OptionsParser::OptionsParser( const std::string & about, const std::string & footer,
                              const std::string & version )
   : app_( about, "velo-agent" ) {
   app_.footer( footer );
   app_.set_version_flag( "--version", version );
   text( kConfig, "FILE", "More options: a file with lines like rate = 100",
         [this]( const std::string & file ) { configFile_ = file; } );
}

void OptionsParser::text( const std::string & name, const std::string & value,
                          const std::string & help, Take take ) {
   const auto taken = [this, name]( const std::string & given ) {
      placeOf_.emplace( name, "" );
      takes_.at( name )( given );
   };
   takes_.emplace( name, std::move( take ) );
   app_.add_option_function< std::string >( name, taken, help )
      ->type_name( value )
      ->group( group_ );
}

void OptionsParser::number( const std::string & name, const std::string & value,
                            const std::string & help, std::uint64_t least, std::uint64_t most,
                            std::function< void( std::uint64_t ) > take ) {
   text( name, value, help, [=]( const std::string & given ) {
      const auto found = numberFrom( given, least, most );
      if ( !found ) { refuse( name, given, fmt::format( "a number from {} to {}", least, most ) ); }
      take( *found );
   } );
}

void OptionsParser::count( const std::string & name, const std::string & value,
                           const std::string & help, std::uint32_t least, std::uint32_t most,
                           std::uint32_t & target ) {
   number( name, value, help, least, most,
           [&target]( std::uint64_t n ) { target = static_cast< std::uint32_t >( n ); } );
}

std::optional< std::string > OptionsParser::parse( std::vector< std::string > arguments ) {
   try {
      parseCommandLine( std::move( arguments ) );
   } catch ( const CLI::CallForHelp & ) {
      return app_.help();
   } catch ( const CLI::CallForVersion & version ) { return std::string( version.what() ) + '\n'; }
   if ( given( kConfig ) ) { parseConfigFile(); }
   return std::nullopt;
}

void OptionsParser::parseCommandLine( std::vector< std::string > arguments ) {
   std::reverse( arguments.begin(), arguments.end() ); // as CLI11 wants them
   try {
      app_.parse( std::move( arguments ) );
   } catch ( const CLI::Success & ) {
      throw; // A question.
   } catch ( const CLI::ExtrasError & ) {
      throw OptionsError( "unknown argument \"" + app_.remaining().front() +
                          "\": velo-agent --help lists what there is" );
   } catch ( const CLI::ArgumentMismatch & mismatch ) {
      throw OptionsError(
         fmt::format( "{}; an option takes one value and is given once", mismatch.what() ) );
   } catch ( const CLI::ParseError & error ) { throw OptionsError( error.what() ); }
}

void OptionsParser::parseConfigFile() {
   std::ifstream in( configFile_ );
   if ( !in ) {
      throw OptionsError(
         fmt::format( "{}: cannot read {}: {}", kConfig, configFile_, std::strerror( errno ) ) );
   }
   for ( const Setting & setting : settingsFrom( in, configFile_ ) ) {
      const std::string name = "--" + setting.name;
      const auto known = takes_.find( name );
      if ( known == takes_.end() || name == kConfig ) {
         throw OptionsError( fmt::format( "{}: unknown option \"{}\": velo-agent --help lists what "
                                          "there is, to be written without its dashes",
                                          setting.where, setting.name ) );
      }
      if ( given( name ) ) { continue; }
      placeOf_.emplace( name, setting.where );
      try {
         known->second( setting.value );
      } catch ( const OptionsError & error ) {
         throw OptionsError( fmt::format( "{}: {}", setting.where, error.what() ) );
      }
   }
}

std::string OptionsParser::named( const std::string & name ) const {
   const auto place = placeOf_.find( name );
   if ( place == placeOf_.end() || place->second.empty() ) { return name; }
   return fmt::format( "{}: {}", place->second, name );
}

void OptionsParser::refuse( const std::string & name, const std::string & given,
                            const std::string & right ) {
   throw OptionsError( fmt::format( "{}: \"{}\" is not {}", name, given, right ) );
}

} // namespace VeloAgent
