#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <tuple>

#include "Ipnet/IpAddr.h"
#include "Lumo/Export.h"
#include "Lumo/String.h"
#include "Quon/HashState.h"
#include "Quon/Text.h"

namespace Ipnet {

/// An IPv4 or IPv6 prefix: what routes are for. A plain value; the default is 0.0.0.0/0.
///
/// Invariant  the length is at most that of the address, and no bit behind it is set
class VELO_PLATFORM_EXPORT IpPrefix {
 public:
   IpPrefix() = default;

   /// `length` in bits. Errors: the range error for a length beyond the address, or an address with
   /// bits set behind the length (10.0.0.1/8); it says what would be right.
   IpPrefix( const IpAddr & address, unsigned length );

   /// Reads "10.0.0.0/8" or "2001:db8::/32". Errors: the range error, also as above.
   explicit IpPrefix( std::string_view text );

   /// Reads the text form at the cursor, whose prefix has the one spelling of `toString`. Errors:
   /// `Quon::ParseError`.
   explicit IpPrefix( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   const IpAddr & address() const { return address_; }
   unsigned length() const { return length_; }

   /// "10.0.0.0/8".
   std::string toString() const;

   friend bool operator==( const IpPrefix &, const IpPrefix & ) = default;
   /// By address, then the shorter one first: a prefix comes before those that it covers.
   friend std::strong_ordering operator<=>( const IpPrefix &, const IpPrefix & ) = default;
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os,
                                                          const IpPrefix & prefix );

   std::uint64_t hash( unsigned seed ) const {
      Quon::HashState state( seed );
      state.mix( address_ );
      state.mix( length_ );
      return state.result();
   }

   static constexpr std::string_view kTypeName = "Ipnet::IpPrefix";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "prefix", &IpPrefix::text, &IpPrefix::textIs ) );
   }

 private:
   Lumo::String text() const { return toString(); }
   void textIs( const Lumo::String & text );

   IpAddr address_;
   std::uint8_t length_ = 0;
};

} // namespace Ipnet
