#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <rapidcheck.h>

#include "Ipnet/AnyAddress.h"
#include "Routing/Fib/Fib.h"

/// Vias, matchers and overrides for property tests, valid one by one.
namespace Routing::Fib::test {

/// Absent now and then.
template< class V, class Make >
Quon::Optional< V > maybe( const Make & make ) {
   if ( *rc::gen::arbitrary< bool >() ) { return V( make() ); }
   return {};
}

inline LabelStack anyLabelStack() {
   const auto labels =
      rc::gen::suchThat( rc::gen::inRange( 0U, LabelStack::kMaxLabel + 1 ),
                         []( std::uint32_t label ) { return label != LabelStack::kImplicitNull; } );
   const auto depth = *rc::gen::inRange< std::size_t >( 0, LabelStack::kMaxDepth + 1 );
   return LabelStack( *rc::gen::container< std::vector< std::uint32_t > >( depth, labels ) );
}

inline Via anyVia() {
   const auto intf = [] { return *rc::gen::arbitrary< std::uint64_t >(); };
   return Via( maybe< Ipnet::IpAddr >( Ipnet::test::anyAddr ), maybe< Ipnet::IntfId >( intf ),
               anyLabelStack() );
}

inline FibOverrideViaMatcher anyMatcher() {
   FibOverrideViaMatcher matcher;
   matcher.vrfIs( *rc::gen::nonEmpty< std::string >() );
   matcher.prefixIs( maybe< Ipnet::IpPrefix >( Ipnet::test::anyPrefix ) );
   matcher.nexthopGroupIs( *rc::gen::arbitrary< std::string >() );
   matcher.viaIs( anyVia() );
   return matcher;
}

inline FibOverrideVia anyOverride() {
   const auto weight = [] { return *rc::gen::arbitrary< std::uint32_t >(); };
   return FibOverrideVia( anyMatcher(), maybe< std::uint32_t >( weight ), maybe< Via >( anyVia ) );
}

} // namespace Routing::Fib::test
