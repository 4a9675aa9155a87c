#include "agent/rpc/FibOverrideConversion.h"

#include "agent/rpc/BadRequest.h"
#include "agent/rpc/Names.h"

#include <span>
#include <velo/rpc/v1/fib_overrides.pb.h>

namespace VeloAgent {

namespace {

namespace v1 = velo::rpc::v1;
using Routing::Fib::FibOverrideVia;
using Routing::Fib::FibOverrideViaMatcher;
using Routing::Fib::LabelStack;
using Routing::Fib::Via;

Via viaFrom( const v1::FibVia & message ) {
   Via::OptionalAddr nexthop;
   if ( !message.next_hop().empty() ) {
      nexthop = refusingAt( "next_hop", [&] { return Ipnet::IpAddr( message.next_hop() ); } );
   }
   Via::OptionalIntf intf;
   if ( message.has_interface_id() ) { intf = Ipnet::IntfId( message.interface_id() ); }
   const auto & labels = message.labels();
   return Via( nexthop, intf, refusingAt( "labels", [&] {
                  return LabelStack(
                     std::span( labels.data(), static_cast< std::size_t >( labels.size() ) ) );
               } ) );
}

void viaToMessage( const Via & via, v1::FibVia & message ) {
   if ( via.nexthop() ) { message.set_next_hop( via.nexthop()->toString() ); }
   if ( via.intf() ) { message.set_interface_id( via.intf()->value() ); }
   const LabelStack & labels = via.labelStack();
   for ( std::size_t at = 0; at < labels.depth(); ++at ) {
      message.add_labels( labels.label( at ) );
   }
}

void matcherToMessage( const FibOverrideViaMatcher & matcher, v1::FibOverrideMatcher & message ) {
   message.set_vrf( std::string( matcher.vrf().view() ) );
   if ( matcher.prefix() ) { message.set_prefix( matcher.prefix()->toString() ); }
   message.set_nexthop_group( std::string( matcher.nexthopGroup().view() ) );
   viaToMessage( matcher.via(), *message.mutable_via() );
}

} // namespace

FibOverrideViaMatcher matcherFrom( const v1::FibOverrideMatcher & message ) {
   FibOverrideViaMatcher matcher;
   if ( !message.vrf().empty() ) { matcher.vrfIs( boundedName( "vrf", message.vrf() ) ); }
   if ( !message.prefix().empty() ) {
      matcher.prefixIs(
         refusingAt( "prefix", [&] { return Ipnet::IpPrefix( message.prefix() ); } ) );
   }
   matcher.nexthopGroupIs( boundedName( "nexthop_group", message.nexthop_group() ) );
   matcher.viaIs( refusingAt( "via", [&] { return viaFrom( message.via() ); } ) );
   return matcher;
}

FibOverrideVia overrideFrom( const v1::FibOverride & message ) {
   const auto matcher = refusingAt( "matcher", [&] { return matcherFrom( message.matcher() ); } );
   FibOverrideVia::OptionalWeight weight;
   if ( message.has_weight() ) { weight = message.weight(); }
   FibOverrideVia::OptionalVia replacement;
   if ( message.has_replacement() ) {
      replacement = refusingAt( "replacement", [&] { return viaFrom( message.replacement() ); } );
   }
   return FibOverrideVia( matcher, weight, replacement );
}

void toMessage( const FibOverrideVia & value, v1::FibOverride & message ) {
   matcherToMessage( value.matcher(), *message.mutable_matcher() );
   if ( value.weight() ) { message.set_weight( *value.weight() ); }
   if ( value.replacement() ) {
      viaToMessage( *value.replacement(), *message.mutable_replacement() );
   }
}

} // namespace VeloAgent
