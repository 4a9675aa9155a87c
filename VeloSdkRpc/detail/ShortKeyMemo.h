#pragma once

#include <cstdint>

#include "VeloSdkRpc/detail/PbrCountersKeyCompressionTable.h"

namespace VeloSdkRpc::detail {

/// The short key of one long key, as the compression table last told it.
///
/// It is good until any pairing of the table is broken: new pairings leave it alone. With a million
/// classes asking the table costs three or four cache misses, asking this none. It stands in every
/// machine of a class, so it is small: fifteen bytes.
class ShortKeyMemo {
 public:
   /// Whether `table` would still say the same.
   bool isGood( const PbrCountersKeyCompressionTable & table ) const {
      return asOf_ == asOfNow( table );
   }
   std::uint64_t shortKey() const { return shortKey_; }

   void remember( const PbrCountersKeyCompressionTable & table, std::uint64_t shortKey ) {
      shortKey_ = shortKey;
      asOf_ = asOfNow( table );
   }

 private:
   /// No table ever counts that far: a million broken pairings a second take two thousand years.
   static constexpr std::uint64_t kMask = ( std::uint64_t{ 1 } << 56 ) - 1;
   static std::uint64_t asOfNow( const PbrCountersKeyCompressionTable & table ) {
      return ( table.pairingsBroken() + 1 ) & kMask;
   }

   std::uint64_t shortKey_ = 0;
   std::uint64_t asOf_ : 56 = 0; ///< 0: nothing was told yet.
};

} // namespace VeloSdkRpc::detail
