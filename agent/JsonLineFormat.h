/// One JSON object per line, told apart by "event":
///
///   {"event":"record","short_key":7,"flags":{"encode_long_key":true,"delete_key":false},
///    "long_key":{"policy":"web","class":"http","acl_rule":""},
///    "data":{"packets":12,"bytes":1008},"deleted":false}
///   {"event":"push","records":1}
///   {"event":"source-error","what":"…","retry_in_ms":400}
///   {"event":"source-recovered"}
///   {"event":"note","what":"…"}
///
/// "long_key" is there when the record asks for it or the key is news to the reader; "data" is null
/// when there is none.
///
/// Names may hold any bytes: agent/JsonText.h says how they are written.

#pragma once

#include "agent/LineFormat.h"

namespace VeloAgent {

class JsonLineFormat final : public LineFormat {
 public:
   std::string record( const DeliveredRecord & delivered ) const override;
   std::string push( std::uint64_t records ) const override;
   std::string sourceError( std::string_view what,
                            std::chrono::milliseconds retryIn ) const override;
   std::string sourceRecovered() const override;
   std::string note( std::string_view what ) const override;
};

} // namespace VeloAgent
