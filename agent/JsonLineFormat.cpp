#include "agent/JsonLineFormat.h"

#include "agent/JsonText.h"

#include <nlohmann/json.hpp>

namespace VeloAgent {

namespace {

using Json = nlohmann::ordered_json;

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
