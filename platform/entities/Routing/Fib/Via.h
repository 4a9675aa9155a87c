#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Ipnet/Ipnet.h"
#include "Lumo/Export.h"
#include "Lumo/Relocatable.h"
#include "Quon/Optional.h"
#include "Quon/Text.h"
#include "Routing/Fib/LabelStack.h"

namespace Routing::Fib {

/// Where packets go: to a next hop, out of an interface, under labels. A plain value; whether it
/// makes sense depends on what it is used for, see FibOverrideConfig.
///
/// The next hop need not be of the family of the packets: IPv4 routes may have IPv6 next hops.
class VELO_PLATFORM_EXPORT Via {
 public:
   using OptionalAddr = Quon::Optional< Ipnet::IpAddr >;
   using OptionalIntf = Quon::Optional< Ipnet::IntfId >;

   Via() = default;
   explicit Via( const OptionalAddr & nexthop, const OptionalIntf & intf = {},
                 const LabelStack & labelStack = {} )
      : nexthop_( nexthop ), intf_( intf ), labelStack_( labelStack ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit Via( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// Absent: what is behind the interface, or whatever.
   const OptionalAddr & nexthop() const { return nexthop_; }
   /// Absent: the one that leads to the next hop, or whatever.
   const OptionalIntf & intf() const { return intf_; }
   /// What is pushed onto the packets.
   const LabelStack & labelStack() const { return labelStack_; }

   friend bool operator==( const Via &, const Via & ) = default;
   /// By next hop, interface and labels; what is absent comes first.
   friend std::strong_ordering operator<=>( const Via &, const Via & ) = default;
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const Via & via );

   std::uint64_t hash( unsigned seed ) const;

   static constexpr std::string_view kTypeName = "Routing::Fib::Via";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "nexthop", &Via::nexthop_ ),
                              Quon::attribute( "intf", &Via::intf_ ),
                              Quon::attribute( "labelStack", &Via::labelStack_ ) );
   }

   static constexpr bool kRelocatable =
      Lumo::isRelocatable< OptionalAddr, OptionalIntf, LabelStack >;

 private:
   OptionalAddr nexthop_;
   OptionalIntf intf_;
   LabelStack labelStack_;
};

} // namespace Routing::Fib
