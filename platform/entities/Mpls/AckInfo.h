#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Plink/FecId.h"
#include "Quon/Text.h"

namespace Mpls::Hardware {

/// What the hardware has acknowledged of a route. A default one acknowledges nothing.
class VELO_PLATFORM_EXPORT AckInfo {
 public:
   AckInfo() = default;
   AckInfo( const Plink::Fib::FecId & fecId, std::uint32_t routeVersion,
            std::uint32_t nexthopGroupVersion, std::uint8_t ack )
      : fecId_( fecId ),
        routeVersion_( routeVersion ),
        nexthopGroupVersion_( nexthopGroupVersion ),
        ack_( ack ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit AckInfo( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// Where the route leads.
   const Plink::Fib::FecId & fecId() const { return fecId_; }
   /// The version of the route that the hardware has; 0: none.
   std::uint32_t routeVersion() const { return routeVersion_; }
   /// The version of the next-hop group that the route leads to; 0: none.
   std::uint32_t nexthopGroupVersion() const { return nexthopGroupVersion_; }
   /// How it was acknowledged, in the hardware agent's own numbers.
   std::uint8_t ack() const { return ack_; }

   friend bool operator==( const AckInfo &, const AckInfo & ) = default;

   static constexpr std::string_view kTypeName = "Mpls::Hardware::AckInfo";
   static constexpr auto attributes() {
      return std::make_tuple(
         Quon::attribute( "fecId", &AckInfo::fecId_ ),
         Quon::attribute( "routeVersion", &AckInfo::routeVersion_ ),
         Quon::attribute( "nexthopGroupVersion", &AckInfo::nexthopGroupVersion_ ),
         Quon::attribute( "ack", &AckInfo::ack_ ) );
   }

 private:
   Plink::Fib::FecId fecId_;
   std::uint32_t routeVersion_ = 0;
   std::uint32_t nexthopGroupVersion_ = 0;
   std::uint8_t ack_ = 0;
};

VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const AckInfo & ackInfo );

} // namespace Mpls::Hardware
