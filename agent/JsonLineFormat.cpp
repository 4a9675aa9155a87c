#include "agent/JsonLineFormat.h"

#include <nlohmann/json.hpp>

namespace VeloAgent {

namespace {

using Json = nlohmann::ordered_json;

std::string lineOf( const Json & object ) {
   return object.dump( -1, ' ', false, Json::error_handler_t::replace );
}

/// Asks the library that will print it, so that the two cannot disagree.
bool isUtf8( std::string_view bytes ) {
   try {
      Json( bytes ).dump();
      return true;
   } catch ( const Json::type_error & ) { return false; }
}

std::string hexOf( std::string_view bytes ) {
   constexpr std::string_view kDigits = "0123456789abcdef";
   std::string hex;
   for ( const char byte : bytes ) {
      const auto value = static_cast< unsigned char >( byte );
      hex.push_back( kDigits[value >> 4] );
      hex.push_back( kDigits[value & 15] );
   }
   return hex;
}

void addName( Json & object, const char * key, std::string_view bytes ) {
   object[key] = bytes;
   if ( !isUtf8( bytes ) ) { object[std::string( key ) + "_hex"] = hexOf( bytes ); }
}

} // namespace

std::string JsonLineFormat::record( const DeliveredRecord & delivered ) const {
   Json line = { { "event", "record" }, { "short_key", delivered.shortKey } };
   line["flags"] = { { "encode_long_key", delivered.encodeLongKey },
                     { "delete_key", delivered.deleteKey } };
   if ( delivered.encodeLongKey || delivered.longKeyIsNews ) {
      Json & longKey = line["long_key"];
      addName( longKey, "policy", delivered.policy );
      addName( longKey, "class", delivered.className );
      addName( longKey, "acl_rule", delivered.aclRule );
   }
   Json & data = line["data"];
   if ( delivered.counters ) {
      data = { { "packets", delivered.counters->packets }, { "bytes", delivered.counters->bytes } };
   }
   line["deleted"] = delivered.deleted;
   return lineOf( line );
}

std::string JsonLineFormat::push( std::uint64_t records ) const {
   return lineOf( { { "event", "push" }, { "records", records } } );
}

std::string JsonLineFormat::sourceError( std::string_view what,
                                         std::chrono::milliseconds retryIn ) const {
   return lineOf(
      { { "event", "source-error" }, { "what", what }, { "retry_in_ms", retryIn.count() } } );
}

std::string JsonLineFormat::sourceRecovered() const {
   return lineOf( { { "event", "source-recovered" } } );
}

std::string JsonLineFormat::note( std::string_view what ) const {
   return lineOf( { { "event", "note" }, { "what", what } } );
}

} // namespace VeloAgent
