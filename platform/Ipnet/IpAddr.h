#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Lumo/String.h"
#include "Quon/HashState.h"
#include "Quon/Text.h"

namespace Ipnet {

/// An IPv4 or IPv6 address. A plain value of 17 bytes; the default is 0.0.0.0.
///
/// An IPv4 address and the IPv6 address that has it mapped in are different.
class VELO_PLATFORM_EXPORT IpAddr {
 public:
   enum class Family : std::uint8_t { v4 = 4, v6 = 6 };
   using Bytes = std::array< std::uint8_t, 16 >;

   IpAddr() = default;

   /// Reads "192.0.2.1" or "2001:db8::1", in any of its spellings. Errors: the range error, with
   /// the text and examples of what would be right.
   explicit IpAddr( std::string_view text );

   /// Reads the text form at the cursor, whose address has the one spelling of `toString`. Errors:
   /// `Quon::ParseError`.
   explicit IpAddr( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// The address whose bytes, first to last, are those of `number`, highest to lowest.
   static IpAddr v4( std::uint32_t number );
   static IpAddr v6( const Bytes & bytes );

   Family family() const { return family_; }
   /// 32 or 128.
   unsigned bits() const { return family_ == Family::v4 ? 32 : 128; }
   /// In the order in which they are sent; those of an IPv4 address are the first four, the others
   /// are zero.
   const Bytes & bytes() const { return bytes_; }

   bool isUnspecified() const;
   bool isMulticast() const;
   /// 169.254.0.0/16 or fe80::/10: means something together with an interface only.
   bool isLinkLocal() const;

   /// "192.0.2.1" or "2001:db8::1": lower case, the longest run of zeros (the first of them)
   /// shortened.
   std::string toString() const;

   friend bool operator==( const IpAddr & a, const IpAddr & b ) {
      return a.family_ == b.family_ && a.words() == b.words();
   }
   /// IPv4 before IPv6, then by number.
   friend std::strong_ordering operator<=>( const IpAddr &, const IpAddr & ) = default;
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const IpAddr & addr );

   std::uint64_t hash( unsigned seed ) const {
      const Words both = words();
      Quon::HashState state( seed );
      state.mix( both.first ^ static_cast< std::uint64_t >( family_ ) );
      if ( family_ == Family::v6 ) { state.mix( both.second ); }
      return state.result();
   }

   static constexpr std::string_view kTypeName = "Ipnet::IpAddr";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "address", &IpAddr::text, &IpAddr::textIs ) );
   }

 private:
   IpAddr( Family family, const Bytes & bytes ) : family_( family ), bytes_( bytes ) {}

   /// The bytes as two numbers, whichever: to compare and to hash, both without a call.
   struct Words {
      std::uint64_t first, second;
      friend bool operator==( const Words &, const Words & ) = default;
   };
   Words words() const { return std::bit_cast< Words >( bytes_ ); }

   Lumo::String text() const { return toString(); }
   void textIs( const Lumo::String & text );

   Family family_ = Family::v4;
   Bytes bytes_{};
};

} // namespace Ipnet
