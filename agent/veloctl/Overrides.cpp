#include "agent/veloctl/Overrides.h"

#include "agent/Printable.h"
#include "agent/veloctl/Addresses.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Configured.h"
#include "agent/veloctl/OverrideOptions.h"
#include "agent/veloctl/Resync.h"
#include "agent/veloctl/Table.h"

#include <memory>
#include <optional>
#include <ostream>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;
using VeloAgent::printable;

void normalise( FibVia & via ) { via.set_next_hop( normalAddress( via.next_hop() ) ); }

FibOverrideMatcher normal( FibOverrideMatcher matcher ) {
   if ( matcher.vrf().empty() ) { matcher.set_vrf( "default" ); }
   matcher.set_prefix( normalPrefix( matcher.prefix() ) );
   normalise( *matcher.mutable_via() );
   return matcher;
}

std::string textOf( const FibVia & via ) {
   std::string text = via.next_hop().empty() ? std::string() : ' ' + printable( via.next_hop() );
   if ( via.has_interface_id() ) { text += fmt::format( " interface {}", via.interface_id() ); }
   if ( !via.labels().empty() ) {
      text += fmt::format( " labels {}", fmt::join( via.labels(), "," ) );
   }
   return text.empty() ? text : text.substr( 1 );
}

std::string routeText( const FibOverrideMatcher & matcher ) {
   if ( !matcher.prefix().empty() ) { return printable( matcher.prefix() ); }
   if ( !matcher.nexthop_group().empty() ) {
      return "group " + printable( matcher.nexthop_group() );
   }
   return "any route";
}

std::string weightText( const FibOverride & item ) {
   return item.has_weight() ? fmt::format( "{}", item.weight() ) : "-";
}

void deleteOverrides( Session & session, const FibOverrideMatcher & matcher ) {
   FibOverridesDeleteRequest request;
   *request.add_matchers() = matcher;
   const auto response = session.agent().call< FibOverridesDeleteResponse >( request );
   if ( session.json() ) { return session.jsonLine( response ); }
   session.line( fmt::format( "{} deleted", response.deleted() ) );
}

void listOverrides( Session & session ) {
   const Items< Overrides > items = itemsOf< Overrides >( session.agent() );
   if ( session.json() ) { return session.line( documentOf< Overrides >( items ) ); }
   Table table{ "VRF", "ROUTE", "VIA", ">WEIGHT", "REPLACED BY" };
   for ( const auto & [key, item] : items ) {
      const FibOverrideMatcher & matcher = item.matcher();
      table.row( { printable( matcher.vrf() ), routeText( matcher ), textOf( matcher.via() ),
                   weightText( item ), textOf( item.replacement() ) } );
   }
   table.print( session.streams.out );
}

void defaultWeight( Session & session, const std::optional< std::uint32_t > & weight ) {
   if ( weight ) {
      SetDefaultUcmpWeightRequest request;
      request.set_weight( *weight );
      session.agent().call< SetDefaultUcmpWeightResponse >( request );
      return;
   }
   const auto response =
      session.agent().call< GetDefaultUcmpWeightResponse >( GetDefaultUcmpWeightRequest() );
   if ( session.json() ) { return session.jsonLine( response ); }
   session.line( response.has_weight() ? fmt::format( "{}", response.weight() ) : "never set" );
}

} // namespace

std::string Overrides::keyOf( const Item & item ) {
   const FibOverrideMatcher matcher = VeloCtl::normal( item.matcher() );
   return VeloAgent::lineOf( jsonOf( matcher ) );
}

FibOverride Overrides::normal( FibOverride item ) {
   *item.mutable_matcher() = VeloCtl::normal( item.matcher() );
   if ( item.has_replacement() ) { normalise( *item.mutable_replacement() ); }
   return item;
}

std::string Overrides::textOf( const FibOverride & item ) {
   const FibOverrideMatcher matcher = VeloCtl::normal( item.matcher() );
   std::string text = fmt::format( "vrf {}, {}, via {}", printable( matcher.vrf() ),
                                   routeText( matcher ), VeloCtl::textOf( matcher.via() ) );
   if ( item.has_weight() ) { text += fmt::format( ": weight {}", item.weight() ); }
   if ( item.has_replacement() ) {
      text += ": replaced by " + VeloCtl::textOf( item.replacement() );
   }
   return text;
}

void addOverrides( Commands & commands ) {
   Commands overrides = commands.group( "overrides", "Overrides of the vias that the FIB uses" );

   const auto toSet = std::make_shared< OverrideArguments >();
   addOverrideOptions( overrides.add( "set",
                                      "Add an override, or replace what has the same matcher",
                                      [toSet]( Session & session ) {
                                         set< Overrides >( session, toSet->items() );
                                      } ),
                       *toSet );

   const auto toDelete = std::make_shared< FibOverrideMatcher >();
   addMatcherOptions(
      overrides.add( "delete", "Remove the override with this matcher",
                     [toDelete]( Session & session ) { deleteOverrides( session, *toDelete ); } ),
      [toDelete]() -> FibOverrideMatcher & { return *toDelete; } );

   overrides.add( "list", "All overrides", listOverrides );
   addOverridesResync( overrides, "resync" );

   const auto weight = std::make_shared< std::optional< std::uint32_t > >();
   addNumber( overrides.add( "default-weight", "The default UCMP weight: shown, or set to WEIGHT",
                             [weight]( Session & session ) { defaultWeight( session, *weight ); } ),
              "WEIGHT", "No unit; there is no way back to its absence", 0, UINT32_MAX,
              [weight]( std::uint64_t n ) { *weight = static_cast< std::uint32_t >( n ); } )
      ->type_name( "" );
}

} // namespace VeloCtl
