#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"

namespace VeloSdkRpc {

/// How a record is to be encoded for the consumer: a set of two bits in one byte.
class VELO_SDK_RPC_EXPORT PbrCountersEncodingFlags {
 public:
   PbrCountersEncodingFlags() = default;

   /// The flags with the bits of `value`, which is 0 to 3.
   /// Errors: above 3 `Quon::DenseEnumBoolSetRangeException`.
   explicit PbrCountersEncodingFlags( std::uint8_t value );

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit PbrCountersEncodingFlags( Quon::CharRange & text );

   /// The consumer must be given the long key with this record. Bit 0.
   bool encodeLongKey() const { return value_ & encodeLongKey_; }
   void encodeLongKeyIs( bool on ) { bitIs( encodeLongKey_, on ); }

   /// The record announces that the key was deleted. Bit 1.
   bool deleteKey() const { return value_ & deleteKey_; }
   void deleteKeyIs( bool on ) { bitIs( deleteKey_, on ); }

   std::uint8_t value() const { return value_; }

   /// Whether any bit is set.
   explicit operator bool() const { return value_ != 0; }

   friend bool operator==( PbrCountersEncodingFlags, PbrCountersEncodingFlags ) = default;

   static constexpr std::string_view kTypeName = "VeloSdkRpc::PbrCountersEncodingFlags";
   static constexpr auto attributes() {
      using Flags = PbrCountersEncodingFlags;
      return std::make_tuple(
         Quon::attribute( "encodeLongKey", &Flags::encodeLongKey, &Flags::encodeLongKeyIs ),
         Quon::attribute( "deleteKey", &Flags::deleteKey, &Flags::deleteKeyIs ) );
   }

 private:
   enum Bit : std::uint8_t { encodeLongKey_ = 1, deleteKey_ = 2 };

   void bitIs( Bit bit, bool on ) {
      value_ = static_cast< std::uint8_t >( on ? value_ | bit : value_ & ~bit );
   }

   std::uint8_t value_ = 0;
};

VELO_SDK_RPC_EXPORT std::ostream & operator<<( std::ostream & os, PbrCountersEncodingFlags flags );

} // namespace VeloSdkRpc
