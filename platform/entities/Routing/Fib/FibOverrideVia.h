#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Lumo/Relocatable.h"
#include "Quon/Optional.h"
#include "Quon/Text.h"
#include "Routing/Fib/FibOverrideViaMatcher.h"
#include "Routing/Fib/Via.h"

namespace Routing::Fib {

/// One override: which vias, and what becomes of them. A plain value; what makes no sense is
/// refused by the configuration that it is put into.
class VELO_PLATFORM_EXPORT FibOverrideVia {
 public:
   using OptionalWeight = Quon::Optional< std::uint32_t >;
   using OptionalVia = Quon::Optional< Via >;

   FibOverrideVia() = default;
   explicit FibOverrideVia( const FibOverrideViaMatcher & matcher,
                            const OptionalWeight & weight = {},
                            const OptionalVia & replacement = {} )
      : matcher_( matcher ), weight_( weight ), replacement_( replacement ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit FibOverrideVia( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// Which vias; the key of the override.
   const FibOverrideViaMatcher & matcher() const { return matcher_; }

   /// The UCMP weight that they have instead of their own: vias of weights 1 and 3 share the
   /// traffic of a route 1 to 3, one of weight 0 gets none. Absent: their own.
   const OptionalWeight & weight() const { return weight_; }

   /// The via that stands in their place. Absent: themselves.
   const OptionalVia & replacement() const { return replacement_; }

   /// First what differs between two that are compared, one taking the place of the other.
   friend bool operator==( const FibOverrideVia & a, const FibOverrideVia & b ) {
      return a.weight_ == b.weight_ && a.replacement_ == b.replacement_ && a.matcher_ == b.matcher_;
   }
   /// By matcher, weight and replacement; what is absent comes first.
   friend std::strong_ordering operator<=>( const FibOverrideVia &,
                                            const FibOverrideVia & ) = default;
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os,
                                                          const FibOverrideVia & via );

   std::uint64_t hash( unsigned seed ) const;

   static constexpr std::string_view kTypeName = "Routing::Fib::FibOverrideVia";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "matcher", &FibOverrideVia::matcher_ ),
                              Quon::attribute( "weight", &FibOverrideVia::weight_ ),
                              Quon::attribute( "replacement", &FibOverrideVia::replacement_ ) );
   }

   static constexpr bool kRelocatable =
      Lumo::isRelocatable< FibOverrideViaMatcher, OptionalWeight, OptionalVia >;

 private:
   FibOverrideViaMatcher matcher_;
   OptionalWeight weight_;
   OptionalVia replacement_;
};

} // namespace Routing::Fib
