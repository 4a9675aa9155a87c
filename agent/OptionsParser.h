/// Options, wherever they come from: the command line, and the configuration file that it names.
/// What the command line says goes before what the file says.
///
/// Every option takes one value, which goes to a function of whoever declared it. What that
/// function refuses with an OptionsError is reported with the place where the value was found.
///
/// Owner      whoever wants options, for as long as it takes

#pragma once

#include "agent/ConfigFile.h"
#include "agent/OptionsError.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdint>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <optional>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

namespace VeloAgent {

class OptionsParser {
 public:
   using Take = std::function< void( const std::string & ) >;

   OptionsParser( const std::string & about, const std::string & footer,
                  const std::string & version );

   /// What is declared from now on stands together under `title`.
   void groupIs( const std::string & title ) { group_ = title; }

   void text( const std::string & name, const std::string & value, const std::string & help,
              Take take );

   /// A number within bounds, both included.
   void number( const std::string & name, const std::string & value, const std::string & help,
                std::uint64_t least, std::uint64_t most,
                std::function< void( std::uint64_t ) > take );

   void count( const std::string & name, const std::string & value, const std::string & help,
               std::uint32_t least, std::uint32_t most, std::uint32_t & target );

   template< typename Enum >
   using Word = std::pair< const char *, Enum >;

   /// One of `words`, which outlive this.
   template< typename Enum, std::size_t count >
   void choice( const std::string & name, const std::string & help, Enum & target,
                const std::array< Word< Enum >, count > & words ) {
      const auto word = std::views::keys( words );
      const auto take = [name, word, &target, &words]( const std::string & given ) {
         const auto found = std::ranges::find( words, given, &Word< Enum >::first );
         if ( found == words.end() ) {
            refuse( name, given, fmt::format( "one of {}", fmt::join( word, ", " ) ) );
         }
         target = found->second;
      };
      text( name, fmt::format( "{}", fmt::join( word, "|" ) ), help, take );
   }

   /// Reads the options; `arguments` come without the program's name. Returns the answer if they
   /// ask a question (--help, --version); then nothing else counts. Throws OptionsError.
   std::optional< std::string > parse( std::vector< std::string > arguments );

   bool given( const std::string & name ) const { return placeOf_.count( name ) > 0; }

   /// `name` as an error about it begins: with the place in the file, if it was found there.
   std::string named( const std::string & name ) const;

   /// Throws the OptionsError of a value that is not `right`.
   [[noreturn]] static void refuse( const std::string & name, const std::string & given,
                                    const std::string & right );

 private:
   void parseCommandLine( std::vector< std::string > arguments );
   void parseConfigFile();

   CLI::App app_;
   std::string group_ = "Options";
   std::string configFile_;
   std::map< std::string, Take > takes_;
   /// Of every option that was given: empty if on the command line, else where in the file.
   std::map< std::string, std::string > placeOf_;
};

} // namespace VeloAgent
