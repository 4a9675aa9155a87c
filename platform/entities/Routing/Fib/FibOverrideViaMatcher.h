#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Ipnet/Ipnet.h"
#include "Lumo/Export.h"
#include "Lumo/Relocatable.h"
#include "Lumo/String.h"
#include "Quon/Optional.h"
#include "Quon/Text.h"
#include "Routing/Fib/Via.h"

namespace Routing::Fib {

/// Says which vias of the FIB are meant, and so names an override:
///
///    in which VRF            the routing table
///    of which route          a prefix, or a next-hop group that routes share; neither: any route
///    which via of it         those that agree with `via` in all that it states
///
/// A value; what it states is also its identity: two matchers that mean the same vias are different
/// unless they state the same.
class VELO_PLATFORM_EXPORT FibOverrideViaMatcher {
 public:
   using OptionalPrefix = Quon::Optional< Ipnet::IpPrefix >;

   /// The VRF of a switch that has no others.
   static constexpr std::string_view kDefaultVrf = "default";

   /// Any via of any route in the default VRF.
   FibOverrideViaMatcher() : vrf_( kDefaultVrf ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit FibOverrideViaMatcher( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// The vias like `via` of the route for `prefix` in the default VRF, or of the next-hop group.
   static FibOverrideViaMatcher ofRoute( const Ipnet::IpPrefix & prefix, const Via & via );
   static FibOverrideViaMatcher ofNexthopGroup( const Lumo::String & name, const Via & via );

   const Lumo::String & vrf() const { return vrf_; }
   const OptionalPrefix & prefix() const { return prefix_; }
   /// Empty: none.
   const Lumo::String & nexthopGroup() const { return nexthopGroup_; }
   const Via & via() const { return via_; }

   /// Errors: the range error for an empty name, and for names longer than a string attribute may
   /// be.
   void vrfIs( const Lumo::String & vrf );
   void prefixIs( const OptionalPrefix & prefix ) { prefix_ = prefix; }
   void nexthopGroupIs( const Lumo::String & name );
   void viaIs( const Via & via ) { via_ = via; }

   friend bool operator==( const FibOverrideViaMatcher &, const FibOverrideViaMatcher & ) = default;
   /// By VRF, prefix, next-hop group and via.
   friend std::strong_ordering operator<=>( const FibOverrideViaMatcher &,
                                            const FibOverrideViaMatcher & ) = default;
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os,
                                                          const FibOverrideViaMatcher & matcher );

   /// O(1). Not the same in two processes.
   std::uint64_t hash( unsigned seed ) const;

   static constexpr std::string_view kTypeName = "Routing::Fib::FibOverrideViaMatcher";
   static constexpr auto attributes() {
      return std::make_tuple(
         Quon::attribute( "vrf", &FibOverrideViaMatcher::vrf, &FibOverrideViaMatcher::vrfIs ),
         Quon::attribute( "prefix", &FibOverrideViaMatcher::prefix_ ),
         Quon::attribute( "nexthopGroup", &FibOverrideViaMatcher::nexthopGroup,
                          &FibOverrideViaMatcher::nexthopGroupIs ),
         Quon::attribute( "via", &FibOverrideViaMatcher::via_ ) );
   }

   static constexpr bool kRelocatable = Lumo::isRelocatable< Lumo::String, OptionalPrefix, Via >;

 private:
   Lumo::String vrf_;
   OptionalPrefix prefix_;
   Lumo::String nexthopGroup_;
   Via via_;
};

} // namespace Routing::Fib
