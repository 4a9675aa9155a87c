#pragma once

#include <cstdint>
#include <string_view>

#include "Lumo/Export.h"
#include "Quon/Entity.h"
#include "Quon/Optional.h"
#include "Quon/PublishedCollection.h"
#include "Routing/Fib/FibOverrideVia.h"

namespace Routing::Fib {

/// What one client overrides in the FIB: vias, by what they match, and the UCMP weight of vias that
/// have none. The routing agent watches it.
///
/// Owner      the mount, and whoever uses it
/// Thread     event loop only
/// Re-entry   every change ends with its notification, see Quon/PublishedCollection.h
/// Invariant  every override passes the checks of `viaOverrideIs` and sits under its own matcher
class VELO_PLATFORM_EXPORT FibOverrideConfig final : public Quon::PublishingEntity {
 public:
   /// The attribute ids under which changes are published.
   static constexpr short kViaOverride = 1;
   static constexpr short kUcmpWeightDefault = 2;

   /// The override carries its key.
   struct ByMatcher : Quon::KeyTraits< FibOverrideViaMatcher > {
      struct KeyFunktor {
         const FibOverrideViaMatcher & operator()( const FibOverrideVia & via ) const {
            return via.matcher();
         }
      };
   };
   using ViaOverrides =
      Quon::PublishedValues< kViaOverride, FibOverrideViaMatcher, FibOverrideVia, ByMatcher >;
   using OptionalWeight = Quon::Optional< std::uint32_t >;

   FibOverrideConfig();
   ~FibOverrideConfig() override;

   const ViaOverrides::Members & viaOverride() const { return viaOverrides_.members(); }

   /// Adds the override, or replaces the one of the same matcher.
   ///
   /// Errors: the range error, and nothing is changed, for
   /// - an override of nothing: neither a weight nor a replacement
   /// - a matcher of both a prefix and a next-hop group
   /// - a via, matched or in its place, with neither a next hop nor an interface
   /// - a next hop that packets cannot be sent to: the unspecified or a multicast address
   /// - a replacement whose next hop is link-local and whose interface is not stated
   void viaOverrideIs( const FibOverrideVia & via );
   void viaOverrideDel( const FibOverrideViaMatcher & matcher ) {
      viaOverrides_.memberDel( matcher );
   }
   /// The one that `at` stands on, which then advances.
   void viaOverrideDel( ViaOverrides::Members::Iterator & at ) { viaOverrides_.memberDel( at ); }
   /// Those whose matcher is `unwanted`, if nobody subscribes; false if somebody does.
   template< class Unwanted >
   bool viaOverrideDelUnseen( const Unwanted & unwanted ) {
      return viaOverrides_.memberDelUnseen( unwanted );
   }
   void viaOverrideDelAll() { viaOverrides_.memberDelAll(); }

   /// The UCMP weight of vias that have none, see FibOverrideVia; absent: the switch's own.
   const OptionalWeight & ucmpWeightDefault() const { return ucmpWeightDefault_; }

   /// Publishes `kUcmpWeightDefault` with the old and the new `OptionalWeight` if they differ.
   void ucmpWeightDefaultIs( const OptionalWeight & weight );

   const Quon::TypeData & typeData() const override;

   static constexpr std::string_view kTypeName = "Routing::Fib::FibOverrideConfig";

 private:
   ViaOverrides viaOverrides_;
   OptionalWeight ucmpWeightDefault_;
};

} // namespace Routing::Fib
