#include "Quon/CharRange.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include <fmt/format.h>

#include "Quon/ParseError.h"
#include "Quon/detail/Escape.h"

namespace Quon {
namespace {

constexpr bool isPlain( char c ) { return c >= ' ' && c <= '~' && c != '\'' && c != '\\'; }

/// What stands at the start of `rest`, shown in an error: enough to see the difference from
/// something of `interesting` bytes, never the whole of a long text.
std::string excerpt( std::string_view rest, std::size_t interesting ) {
   constexpr std::size_t kShortest = 16, kLongest = 80;
   if ( rest.empty() ) { return "the end of the text"; }
   std::string shown = "\"";
   const std::size_t size = std::clamp( interesting, kShortest, kLongest );
   Impl::appendEscaped( shown, rest.substr( 0, size ), '"' );
   return shown + ( rest.size() > size ? "...\"" : "\"" );
}

/// The one value of `\xNN` that printing would have written so, or -1.
int hexEscape( std::string_view twoDigits ) {
   unsigned char byte = 0;
   const char * end = twoDigits.data() + twoDigits.size();
   if ( std::from_chars( twoDigits.data(), end, byte, 16 ).ptr != end ) { return -1; }
   std::string printed;
   const char c = static_cast< char >( byte );
   Impl::appendEscaped( printed, { &c, 1 }, '\'' );
   return printed == fmt::format( "\\x{}", twoDigits ) ? byte : -1;
}

} // namespace

CharRange::AttributeScope::AttributeScope( CharRange & range, std::string_view name )
   : range_( range ),
     name_( name ),
     outer_( range.innermost_ ),
     depth_( outer_ ? outer_->depth_ + 1 : 1 ) {
   if ( depth_ > kMaxNesting ) {
      range.failAt( range.position_, fmt::format( "nested deeper than {}", kMaxNesting ) );
   }
   range_.innermost_ = this;
}

std::string CharRange::path() const {
   std::string path;
   for ( const AttributeScope * at = innermost_; at; at = at->outer_ ) {
      path = path.empty() ? std::string( at->name_ ) : fmt::format( "{}.{}", at->name_, path );
   }
   return path;
}

void CharRange::failAt( std::size_t position, std::string_view reason ) const {
   throw ParseError( path(), position, reason );
}

void CharRange::fail( std::string_view expected ) const {
   failAt( position_,
           fmt::format( "expected {}, found {}", expected, excerpt( rest(), expected.size() ) ) );
}

bool CharRange::accept( std::string_view literal ) {
   if ( !rest().starts_with( literal ) ) { return false; }
   position_ += literal.size();
   return true;
}

void CharRange::expect( std::string_view literal ) {
   if ( !accept( literal ) ) { fail( fmt::format( "\"{}\"", literal ) ); }
}

void CharRange::expectEnd() const {
   if ( !rest().empty() ) { fail( "the end of the text" ); }
}

bool CharRange::parseBool() {
   if ( accept( "True" ) ) { return true; }
   if ( accept( "False" ) ) { return false; }
   fail( "True or False" );
}

/// Reads the escape that the cursor stands on; only the spellings that printing uses.
char CharRange::parseEscape() {
   if ( accept( "\\\\" ) ) { return '\\'; }
   if ( accept( "\\'" ) ) { return '\''; }
   if ( accept( "\\n" ) ) { return '\n'; }
   if ( accept( "\\r" ) ) { return '\r'; }
   if ( accept( "\\t" ) ) { return '\t'; }
   if ( rest().starts_with( "\\x" ) && rest().size() >= 4 ) {
      if ( const int byte = hexEscape( rest().substr( 2, 2 ) ); byte >= 0 ) {
         position_ += 4;
         return static_cast< char >( byte );
      }
   }
   fail( "one of the escapes \\\\ \\' \\n \\r \\t, or \\xNN for any other unprintable byte" );
}

Lumo::String CharRange::parseString() {
   if ( !accept( "'" ) ) { fail( "a string in single quotes" ); }
   std::string bytes;
   while ( !accept( "'" ) ) {
      const std::string_view ahead = rest();
      const auto plainEnd = std::find_if_not( ahead.begin(), ahead.end(), isPlain );
      const auto plain = static_cast< std::size_t >( plainEnd - ahead.begin() );
      bytes.append( ahead, 0, plain );
      position_ += plain;
      if ( rest().starts_with( '\\' ) ) {
         bytes += parseEscape();
      } else if ( !rest().starts_with( '\'' ) ) {
         fail( "a printable character or the closing quote" );
      }
   }
   return bytes;
}

template< class Wide >
Wide CharRange::parseNumber( Wide lowest, Wide highest ) {
   Wide value = 0;
   const std::string_view ahead = rest();
   const auto [end, error] =
      std::from_chars( ahead.data(), ahead.data() + ahead.size(), value, 10 );
   const std::string_view token =
      ahead.substr( 0, static_cast< std::size_t >( end - ahead.data() ) );
   const bool canonical =
      token == "0" || !( token.starts_with( '0' ) || token.starts_with( "-0" ) );
   if ( error != std::errc() || !canonical || value < lowest || value > highest ) {
      fail( fmt::format( "an integer from {} to {}", lowest, highest ) );
   }
   position_ += token.size();
   return value;
}

std::int64_t CharRange::parseSigned( std::int64_t lowest, std::int64_t highest ) {
   return parseNumber( lowest, highest );
}

std::uint64_t CharRange::parseUnsigned( std::uint64_t highest ) {
   return parseNumber( std::uint64_t{ 0 }, highest );
}

} // namespace Quon
