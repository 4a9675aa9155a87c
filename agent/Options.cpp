#include "agent/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <functional>
#include <ranges>
#include <string_view>
#include <utility>

namespace VeloAgent {

namespace {

constexpr const char * kAbout =
   "Streams policy-based-routing counters: one line per record, and one per push.\n"
   "Keys are compressed: a record's long key is sent when the key is new to this stream.";

constexpr const char * kFooter = R"(
Exit codes: 0 ended by a signal or a bound; 1 the source could not be read at start-up, or the
output could not be written; 2 an option was wrong.)";

constexpr std::array< std::string_view, 6 > kFamilies = { "ip",  "ip6",    "inet",
                                                          "arp", "bridge", "netdev" };

template< typename Enum >
using Word = std::pair< const char *, Enum >;

constexpr std::array< Word< SourceKind >, 3 > kSources = { { { "synthetic", SourceKind::synthetic },
                                                             { "nftables", SourceKind::nftables },
                                                             { "none", SourceKind::none } } };
constexpr std::array< Word< OutputFormat >, 2 > kFormats = {
   { { "json", OutputFormat::json }, { "text", OutputFormat::text } } };

std::string withSource( SourceKind source ) {
   const auto * const word = std::ranges::find( kSources, source, &Word< SourceKind >::second );
   return std::string( "--source " ) + word->first;
}

constexpr std::uint64_t kMostClasses = 10'000'000;
constexpr std::uint64_t kMostMilliseconds = 1'000ULL * 3600 * 24 * 365;

[[noreturn]] void refuse( const std::string & option, const std::string & given,
                          const std::string & right ) {
   throw OptionsError( fmt::format( "{}: \"{}\" is not {}", option, given, right ) );
}

std::uint64_t numberFrom( const std::string & option, const std::string & given,
                          std::uint64_t least, std::uint64_t most ) {
   std::uint64_t number = 0;
   const char * const end = given.data() + given.size();
   const auto [stop, error] = std::from_chars( given.data(), end, number );
   if ( error != std::errc() || stop != end || number < least || number > most ) {
      refuse( option, given, fmt::format( "a number from {} to {}", least, most ) );
   }
   return number;
}

NftTableName tableFrom( const std::string & given ) {
   const std::size_t slash = given.find( '/' );
   if ( slash == std::string::npos || slash + 1 == given.size() ) {
      refuse( "--table", given, "FAMILY/NAME, for example inet/filter" );
   }
   const std::string family = given.substr( 0, slash );
   if ( std::find( kFamilies.begin(), kFamilies.end(), family ) == kFamilies.end() ) {
      throw OptionsError( fmt::format( "--table: unknown family \"{}\": FAMILY is one of {}",
                                       family, fmt::join( kFamilies, ", " ) ) );
   }
   return { .family = family, .name = given.substr( slash + 1 ) };
}

class Parser {
 public:
   Parser() : app_( kAbout, "velo-agent" ) {
      app_.footer( kFooter );
      app_.set_version_flag( "--version", std::string( "velo-agent " ) + VELO_AGENT_VERSION );

      choice( "--source", "Where the counters come from (synthetic); none: from RPC clients only",
              options_.source, kSources );
      choice( "--format", "Lines for programs or for people (json)", options_.format, kFormats );
      number( "--duration", "MS", "End by itself after this time", 1, kMostMilliseconds,
              [this]( std::uint64_t n ) { options_.duration = std::chrono::milliseconds( n ); } );
      number( "--max-records", "N", "End by itself after so many records", 1, UINT64_MAX,
              [this]( std::uint64_t n ) { options_.maxRecords = n; } );
      text( "--listen", "ADDRESS", "Where to serve clients: unix:PATH (nowhere)",
            [this]( const std::string & given ) { options_.rpc.listen = given; } );

      belongsTo_ = SourceKind::synthetic;
      count( "--policies", "N", "Policy maps (10)", 1, 10'000'000, options_.synthetic.policies );
      count( "--classes", "N", "Classes of each policy map (10)", 1, 10'000'000,
             options_.synthetic.classes );
      count( "--rate", "N", "Changes per second (100); 0: none after all appeared", 0, 10'000'000,
             options_.synthetic.changesPerSecond );
      count( "--churn", "PERCENT", "Removals among the changes (5); what is gone comes back later",
             0, 100, options_.synthetic.churnPercent );
      number( "--seed", "N", "Another seed is another sequence of changes (1)", 0, UINT64_MAX,
              [this]( std::uint64_t n ) { options_.synthetic.seed = n; } );

      belongsTo_ = SourceKind::nftables;
      text( "--table", "FAMILY/NAME",
            fmt::format( "The table to read; FAMILY: {}", fmt::join( kFamilies, ", " ) ),
            [this]( const std::string & given ) { options_.table = tableFrom( given ); } );
      number( "--interval", "MS", "Time from one reading to the next (1000)", 1, kMostMilliseconds,
              [this]( std::uint64_t n ) { options_.interval = std::chrono::milliseconds( n ); } );
   }

   Options parse( std::vector< std::string > arguments ) {
      std::reverse( arguments.begin(), arguments.end() ); // as CLI11 wants them
      try {
         app_.parse( std::move( arguments ) );
      } catch ( const CLI::CallForHelp & ) {
         options_.answer = app_.help();
         return options_;
      } catch ( const CLI::CallForVersion & version ) {
         options_.answer = std::string( version.what() ) + '\n';
         return options_;
      } catch ( const CLI::ExtrasError & ) {
         throw OptionsError( "unknown argument \"" + app_.remaining().front() +
                             "\": velo-agent --help lists what there is" );
      } catch ( const CLI::ArgumentMismatch & mismatch ) {
         throw OptionsError(
            fmt::format( "{}; an option takes one value and is given once", mismatch.what() ) );
      } catch ( const CLI::ParseError & error ) { throw OptionsError( error.what() ); }
      checkTogether();
      return options_;
   }

 private:
   using Take = std::function< void( const std::string & ) >;

   void text( const char * name, const std::string & value, const std::string & help,
              const Take & take ) {
      CLI::Option * const option = app_.add_option_function< std::string >( name, take, help );
      option->type_name( value );
      if ( belongsTo_ ) {
         option->group( "With " + withSource( *belongsTo_ ) );
         sourceOptions_.emplace_back( option, *belongsTo_ );
      }
   }

   template< typename TakeNumber >
   void number( const char * name, const char * value, const char * help, std::uint64_t least,
                std::uint64_t most, TakeNumber take ) {
      text( name, value, help,
            [=]( const std::string & given ) { take( numberFrom( name, given, least, most ) ); } );
   }

   void count( const char * name, const char * value, const char * help, std::uint64_t least,
               std::uint64_t most, std::uint32_t & target ) {
      number( name, value, help, least, most,
              [&target]( std::uint64_t n ) { target = static_cast< std::uint32_t >( n ); } );
   }

   template< typename Enum, std::size_t count >
   void choice( const char * name, const char * help, Enum & target,
                const std::array< Word< Enum >, count > & words ) {
      const auto word = std::views::keys( words );
      const auto take = [=, &target, &words]( const std::string & given ) {
         const auto found = std::ranges::find( words, given, &Word< Enum >::first );
         if ( found == words.end() ) {
            refuse( name, given, fmt::format( "one of {}", fmt::join( word, ", " ) ) );
         }
         target = found->second;
      };
      text( name, fmt::format( "{}", fmt::join( word, "|" ) ), help, take );
   }

   void checkTogether() const {
      for ( const auto & [option, source] : sourceOptions_ ) {
         if ( option->count() > 0 && source != options_.source ) {
            throw OptionsError( option->get_name() + " is of use only with " +
                                withSource( source ) );
         }
      }
      if ( options_.source == SourceKind::nftables && options_.table.name.empty() ) {
         throw OptionsError(
            "--source nftables needs --table FAMILY/NAME, for example inet/filter" );
      }
      const std::uint64_t classes =
         std::uint64_t{ options_.synthetic.policies } * options_.synthetic.classes;
      if ( classes > kMostClasses ) {
         throw OptionsError(
            fmt::format( "--policies times --classes is {}: at most {} classes in all", classes,
                         kMostClasses ) );
      }
   }

   CLI::App app_;
   Options options_;
   std::optional< SourceKind > belongsTo_;
   std::vector< std::pair< CLI::Option *, SourceKind > > sourceOptions_;
};

} // namespace

Options optionsFrom( const std::vector< std::string > & arguments ) {
   return Parser().parse( arguments );
}

} // namespace VeloAgent
