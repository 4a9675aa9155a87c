#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "Quon/HashState.h"
#include "Quon/Text.h"

namespace Routing::Bgp {

/// What an SDK client overrides for one interface: its BGP link weight.
class BgpLinkWeightSdkOverrideEntry {
 public:
   BgpLinkWeightSdkOverrideEntry() = default;
   explicit BgpLinkWeightSdkOverrideEntry( std::uint32_t weight ) : weight_( weight ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit BgpLinkWeightSdkOverrideEntry( Quon::CharRange & text ) {
      Quon::parseText( text, *this );
   }

   /// Has no unit: paths over links of weights 1 and 3 share their traffic 1 to 3.
   std::uint32_t weight() const { return weight_; }

   friend bool operator==( const BgpLinkWeightSdkOverrideEntry &,
                           const BgpLinkWeightSdkOverrideEntry & ) = default;
   friend std::strong_ordering operator<=>( const BgpLinkWeightSdkOverrideEntry &,
                                            const BgpLinkWeightSdkOverrideEntry & ) = default;
   friend std::ostream & operator<<( std::ostream & os,
                                     const BgpLinkWeightSdkOverrideEntry & entry ) {
      return Quon::printText( os, entry );
   }

   std::uint64_t hash( unsigned seed ) const {
      Quon::HashState state( seed );
      state.mix( weight_ );
      return state.result();
   }

   static constexpr std::string_view kTypeName = "Routing::Bgp::BgpLinkWeightSdkOverrideEntry";
   static constexpr auto attributes() {
      return std::make_tuple(
         Quon::attribute( "weight", &BgpLinkWeightSdkOverrideEntry::weight_ ) );
   }

 private:
   std::uint32_t weight_ = 0;
};

} // namespace Routing::Bgp
