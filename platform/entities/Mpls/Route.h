#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Mpls/AckInfo.h"
#include "Mpls/RouteKey.h"
#include "Quon/Optional.h"
#include "Quon/Text.h"

namespace Mpls::Hardware {

/// One MPLS route as far as the hardware is with it. A plain value.
class VELO_PLATFORM_EXPORT Route {
 public:
   /// The programming state of a route that the hardware forwards by; all others are on the way.
   static constexpr std::uint8_t kProgrammed = 0;

   Route() = default;
   explicit Route( const RouteKey & key, const Quon::Optional< AckInfo > & ackInfo = {},
                   std::uint8_t programmingState = kProgrammed )
      : key_( key ), ackInfo_( ackInfo ), programmingState_( programmingState ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit Route( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   const RouteKey & key() const { return key_; }
   /// Absent while the hardware has acknowledged nothing.
   const Quon::Optional< AckInfo > & ackInfo() const { return ackInfo_; }
   std::uint8_t programmingState() const { return programmingState_; }

   friend bool operator==( const Route &, const Route & ) = default;

   static constexpr std::string_view kTypeName = "Mpls::Hardware::Route";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "key", &Route::key_ ),
                              Quon::attribute( "ackInfo", &Route::ackInfo_ ),
                              Quon::attribute( "programmingState", &Route::programmingState_ ) );
   }

 private:
   RouteKey key_;
   Quon::Optional< AckInfo > ackInfo_;
   std::uint8_t programmingState_ = kProgrammed;
};

VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const Route & route );

} // namespace Mpls::Hardware
