// The configuration file, alone and as all the options that it may hold.

#include <sstream>

#include "agent/ConfigFile.h"
#include "agent/Options.h"
#include "agent/rpc/ListenAddress.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/MemoryFile.h"

namespace Fuzz::ConfigFile {
namespace {

using VeloAgent::OptionsError;
using VeloAgent::Setting;
using VeloAgent::settingsFrom;

void checkRefusal( const OptionsError & error ) {
   const std::string_view what = error.what();
   require( !what.empty() && what.find( '\n' ) == what.npos, "a refusal is one line" );
}

/// The settings as a file, each value in quotes.
std::string written( const std::vector< Setting > & settings ) {
   std::string file;
   for ( const Setting & setting : settings ) {
      file += setting.name + "=\"";
      for ( const char c : setting.value ) {
         if ( c == '"' || c == '\\' ) { file += '\\'; }
         file += c;
      }
      file += "\"\n";
   }
   return file;
}

void readSettings( std::string_view text ) try {
   std::istringstream in{ std::string( text ) };
   const std::vector< Setting > settings = settingsFrom( in, "file" );
   std::istringstream again( written( settings ) );
   const std::vector< Setting > same = settingsFrom( again, "file" );
   require( same.size() == settings.size(), "settings come back from what is written of them" );
   for ( std::size_t i = 0; i < same.size(); ++i ) {
      require( same[i].name == settings[i].name && same[i].value == settings[i].value,
               "a setting comes back from what is written of it" );
   }
} catch ( const OptionsError & error ) { checkRefusal( error ); }

void readOptions( std::string_view text ) {
   static MemoryFile file;
   file.contentsAre( text );
   try {
      const VeloAgent::Options options = VeloAgent::optionsFrom( { "--config", file.path() } );
      if ( !options.rpc.listen.empty() ) {
         const auto address = VeloAgent::listenAddressFrom( options.rpc.listen );
         require( address && VeloAgent::listenAddressFrom( textOf( *address ) ) == address,
                  "an address that is listened at can be told" );
      }
   } catch ( const OptionsError & error ) { checkRefusal( error ); }
}

void parse( std::string_view text ) {
   readSettings( text );
   readOptions( text );
}

const Target target( "ConfigFile", parse );

} // namespace
} // namespace Fuzz::ConfigFile
