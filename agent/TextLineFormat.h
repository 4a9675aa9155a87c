/// One line per record as a person wants to read it, always with the names:
///
///   7 web http: 12 packets, 1008 bytes (new)
///   7 web http: gone
///   -- 2 records
///
/// In names, a backslash and whatever is not printable ASCII appear as \xNN (a space too), so that
/// a name can neither break a line nor steer a terminal.

#pragma once

#include "agent/LineFormat.h"

namespace VeloAgent {

class TextLineFormat final : public LineFormat {
 public:
   std::string record( const DeliveredRecord & delivered ) const override;
   std::string push( std::uint64_t records ) const override;
   std::string sourceError( std::string_view what,
                            std::chrono::milliseconds retryIn ) const override;
   std::string sourceRecovered() const override;
   std::string note( std::string_view what ) const override;
};

} // namespace VeloAgent
