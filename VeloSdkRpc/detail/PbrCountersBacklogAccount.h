#pragma once

#include <cstdint>

namespace VeloSdkRpc {

/// What became of all the records that a backlog was ever given. Between two runs
///
///    arrived = delivered + coalesced + cancelled + dropped + pending
///
/// An equal record that is filed again changes nothing and has not arrived. While a run is in
/// progress the records that it has taken are in none of these numbers.
struct PbrCountersBacklogAccount {
   std::uint64_t arrived = 0;   ///< Stored, in place of another record or not.
   std::uint64_t delivered = 0; ///< The frontend was told, and returned.
   std::uint64_t coalesced = 0; ///< Replaced by a newer record of the key before that.
   std::uint64_t cancelled = 0; ///< Withdrawn; passed over, because the consumer never learnt the
                                ///< key and it is gone; or overtaken by a new start of the stream.
   std::uint64_t dropped = 0;   ///< There was no frontend.
   std::uint64_t pending = 0;

   bool isBalanced() const {
      return arrived == delivered + coalesced + cancelled + dropped + pending;
   }
   friend bool operator==( const PbrCountersBacklogAccount &,
                           const PbrCountersBacklogAccount & ) = default;
};

} // namespace VeloSdkRpc
