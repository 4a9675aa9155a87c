#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Quon/HashState.h"
#include "Quon/Text.h"

namespace Mpls {

/// Names an MPLS route: the label of the packets that it is for.
class VELO_PLATFORM_EXPORT RouteKey {
 public:
   /// More than the 20 bits of a label hold: the default key names no route.
   static constexpr std::uint32_t kNoLabel = 0xffffffff;

   RouteKey() = default;
   explicit RouteKey( std::uint32_t label ) : label_( label ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit RouteKey( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   std::uint32_t label() const { return label_; }

   friend auto operator<=>( const RouteKey &, const RouteKey & ) = default;

   /// Not the same in two processes that seed differently.
   std::uint64_t hash( unsigned seed ) const {
      Quon::HashState state( seed );
      state.mix( label_ );
      return state.result();
   }

   static constexpr std::string_view kTypeName = "Mpls::RouteKey";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "label", &RouteKey::label_ ) );
   }

 private:
   std::uint32_t label_ = kNoLabel;
};

VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const RouteKey & key );

} // namespace Mpls
