#include "Routing/Fib/FibOverrideConfig.h"

#include <utility>

#include <fmt/format.h>

#include "Quon/EntityTypes.h"
#include "Quon/Exceptions.h"

namespace Routing::Fib {
namespace {

const Quon::EntityTypeRegistration< FibOverrideConfig > registered;

void checkVia( const Via & via ) {
   if ( !via.nexthop() && !via.intf() ) {
      Quon::throwRangeException( "a via has a next hop, an interface or both; this one has none" );
   }
   if ( via.nexthop() && ( via.nexthop()->isUnspecified() || via.nexthop()->isMulticast() ) ) {
      Quon::throwRangeException(
         fmt::format( "{} is not the address of one next hop", via.nexthop()->toString() ) );
   }
}

void check( const FibOverrideVia & via ) {
   if ( !via.weight() && !via.replacement() ) {
      Quon::throwRangeException( "a via override has a weight, a replacement or both" );
   }
   const FibOverrideViaMatcher & matcher = via.matcher();
   if ( matcher.prefix() && !matcher.nexthopGroup().empty() ) {
      Quon::throwRangeException(
         fmt::format( "a via override is of a route or of a next-hop group, not of both {} and {}",
                      matcher.prefix()->toString(), matcher.nexthopGroup() ) );
   }
   checkVia( matcher.via() );
   if ( !via.replacement() ) { return; }
   const Via & replacement = *via.replacement();
   checkVia( replacement );
   if ( replacement.nexthop() && replacement.nexthop()->isLinkLocal() && !replacement.intf() ) {
      Quon::throwRangeException( fmt::format( "next hop {} is link-local and needs an interface",
                                              replacement.nexthop()->toString() ) );
   }
}

} // namespace

FibOverrideConfig::FibOverrideConfig() : viaOverrides_( *this ) {}

FibOverrideConfig::~FibOverrideConfig() = default;

void FibOverrideConfig::viaOverrideIs( const FibOverrideVia & via ) {
   check( via );
   viaOverrides_.memberIs( via.matcher(), via );
}

void FibOverrideConfig::ucmpWeightDefaultIs( const OptionalWeight & weight ) {
   if ( weight == ucmpWeightDefault_ ) { return; }
   const OptionalWeight current = weight;
   const OptionalWeight previous = std::exchange( ucmpWeightDefault_, current );
   publisher()->publishChange( kUcmpWeightDefault, nullptr, &previous, &current );
}

const Quon::TypeData & FibOverrideConfig::typeData() const {
   static constexpr std::string_view kAttributes[] = { "viaOverride", "ucmpWeightDefault" };
   static constexpr Quon::TypeData type{ kTypeName, kAttributes };
   return type;
}

} // namespace Routing::Fib
