#pragma once

#include <cstdint>

namespace VeloSdkRpc {

/// What became of all the records that were ever filed in a backlog. Between two runs
///
///    arrived = delivered + coalesced + cancelled + dropped + pending
///
/// While a run is in progress the records that it has taken and not handed over yet are in none of
/// these numbers.
struct PbrCountersBacklogAccount {
   std::uint64_t arrived = 0;   ///< Filed, also if an equal record was pending.
   std::uint64_t delivered = 0; ///< The frontend was told, and returned.
   std::uint64_t coalesced = 0; ///< One with a newer record of the key, or with an equal one.
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
