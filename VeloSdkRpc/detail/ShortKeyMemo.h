#pragma once

#include <cstdint>

#include "VeloSdkRpc/PbrCountersBacklog.h"

namespace VeloSdkRpc::detail {

/// What the machine of a class remembers between two events: the short key of the class, as the
/// compression table last told it, and whether its record was left pending in the backlog.
///
/// The short key is good until any pairing of the table is broken, the record is pending until any
/// is withdrawn: new pairings and new records leave the memo alone. With a million classes asking
/// the table costs three or four cache misses, asking the backlog two, asking this none.
///
/// It stands in every machine of a class, so it is small: fifteen bytes, forty bits for a number.
/// What does not fit, which takes decades, is not remembered.
class ShortKeyMemo {
 public:
   /// Whether `table` would still say the same.
   bool isGood( const PbrCountersKeyCompressionTable & table ) const {
      return number( kAsOf ) == asOfNow( table );
   }
   std::uint64_t shortKey() const { return number( kShortKey ); }

   void remember( const PbrCountersKeyCompressionTable & table, std::uint64_t shortKey ) {
      numberIs( kShortKey, shortKey );
      numberIs( kAsOf, number( kShortKey ) == shortKey ? asOfNow( table ) : 0 );
      numberIs( kPendingAsOf, 0 );
   }

   /// Whether `backlog` still holds the record that was pending when this was last told.
   bool isPending( const PbrCountersBacklog & backlog ) const {
      return number( kPendingAsOf ) == asOfNow( backlog );
   }
   void rememberPending( const PbrCountersBacklog & backlog ) {
      numberIs( kPendingAsOf, asOfNow( backlog ) );
   }

 private:
   enum Number { kShortKey, kAsOf, kPendingAsOf, kNumbers };

   // 0 stands for what was never told. What is left of a count that does not fit never equals it.
   static std::uint64_t asOfNow( const PbrCountersKeyCompressionTable & table ) {
      return table.pairingsBroken() + 1;
   }
   static std::uint64_t asOfNow( const PbrCountersBacklog & backlog ) {
      return backlog.withdrawals() + 1;
   }

   std::uint64_t number( Number n ) const { return std::uint64_t{ high_[n] } << 32 | low_[n]; }
   void numberIs( Number n, std::uint64_t value ) {
      low_[n] = static_cast< std::uint32_t >( value );
      high_[n] = static_cast< std::uint8_t >( value >> 32 );
   }

   std::uint32_t low_[kNumbers] = {};
   std::uint8_t high_[kNumbers] = {};
};

} // namespace VeloSdkRpc::detail
