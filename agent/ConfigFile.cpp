#include "agent/ConfigFile.h"

#include "agent/OptionsError.h"

#include <fmt/format.h>
#include <map>
#include <string_view>

namespace VeloAgent {

namespace {

constexpr std::string_view kBlank = " \t\r";
constexpr std::string_view kCommentBegins = "#;";

std::string_view trimmed( std::string_view text ) {
   const std::size_t first = text.find_first_not_of( kBlank );
   if ( first == text.npos ) { return {}; }
   return text.substr( first, text.find_last_not_of( kBlank ) - first + 1 );
}

bool nothing( std::string_view trimmedText ) {
   return trimmedText.empty() || kCommentBegins.find( trimmedText.front() ) != kCommentBegins.npos;
}

/// Up to a comment, which has a blank in front of it.
std::string bareValue( std::string_view text ) {
   for ( std::size_t at = 1; at < text.size(); ++at ) {
      const bool comment = kCommentBegins.find( text[at] ) != kCommentBegins.npos;
      if ( comment && kBlank.find( text[at - 1] ) != kBlank.npos ) {
         return std::string( trimmed( text.substr( 0, at ) ) );
      }
   }
   return std::string( text );
}

std::string quotedValue( std::string_view text, const std::string & where ) {
   std::string value;
   for ( std::size_t at = 1; at < text.size(); ++at ) {
      if ( text[at] == '"' ) {
         if ( nothing( trimmed( text.substr( at + 1 ) ) ) ) { return value; }
         throw OptionsError( where + ": something follows the closing quote" );
      }
      if ( text[at] == '\\' && at + 1 < text.size() ) { ++at; }
      value += text[at];
   }
   throw OptionsError( where + ": the closing quote is missing" );
}

Setting settingFrom( std::string_view line, const std::string & where ) {
   const std::size_t equals = line.find( '=' );
   const std::string_view name = trimmed( line.substr( 0, equals ) );
   if ( equals == line.npos || name.empty() ) {
      throw OptionsError( fmt::format( "{}: \"{}\" is not NAME = VALUE", where, line ) );
   }
   const std::string_view value = trimmed( line.substr( equals + 1 ) );
   const bool quoted = !value.empty() && value.front() == '"';
   return { .name = std::string( name ),
            .value = quoted             ? quotedValue( value, where )
                     : nothing( value ) ? std::string()
                                        : bareValue( value ),
            .where = where };
}

} // namespace

std::vector< Setting > settingsFrom( std::istream & in, const std::string & file ) {
   std::vector< Setting > settings;
   std::map< std::string, unsigned > lineOf;
   std::string text;
   for ( unsigned line = 1; std::getline( in, text ); ++line ) {
      const std::string_view wanted = trimmed( text );
      if ( nothing( wanted ) ) { continue; }
      const std::string where = fmt::format( "{}:{}", file, line );
      settings.push_back( settingFrom( wanted, where ) );
      const std::string & name = settings.back().name;
      const auto [first, fresh] = lineOf.emplace( name, line );
      if ( !fresh ) {
         throw OptionsError(
            fmt::format( "{}: {} stands in line {} already", where, name, first->second ) );
      }
   }
   return settings;
}

} // namespace VeloAgent
