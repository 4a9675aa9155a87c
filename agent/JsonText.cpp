#include "agent/JsonText.h"

#include <nlohmann/json.hpp>

namespace VeloAgent {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kDigits = "0123456789abcdef";

std::string hexOf( std::string_view bytes ) {
   std::string hex;
   for ( const char byte : bytes ) {
      const auto value = static_cast< unsigned char >( byte );
      hex.push_back( kDigits[value >> 4] );
      hex.push_back( kDigits[value & 15] );
   }
   return hex;
}

} // namespace

std::string lineOf( const Json & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

void addName( Json & object, const std::string & key, std::string_view bytes ) {
   object[key] = bytes;
   if ( !isUtf8( bytes ) ) { object[key + "_hex"] = hexOf( bytes ); }
}

/// Asks the library that will print it, so that the two cannot disagree.
bool isUtf8( std::string_view bytes ) {
   try {
      Json( bytes ).dump();
      return true;
   } catch ( const Json::type_error & ) { return false; }
}

std::optional< std::string > bytesOfHex( std::string_view digits ) {
   if ( digits.size() % 2 != 0 ) { return std::nullopt; }
   std::string bytes;
   for ( std::size_t at = 0; at < digits.size(); at += 2 ) {
      const std::size_t high = kDigits.find( digits[at] );
      const std::size_t low = kDigits.find( digits[at + 1] );
      if ( high == std::string_view::npos || low == std::string_view::npos ) {
         return std::nullopt;
      }
      bytes.push_back( static_cast< char >( high << 4 | low ) );
   }
   return bytes;
}

} // namespace VeloAgent
