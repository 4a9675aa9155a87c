#include "agent/veloctl/OverrideOptions.h"

#include "agent/veloctl/Commands.h"

#include <sstream>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

constexpr std::uint64_t kMostLabel = ( 1 << 20 ) - 1;

/// Text for a field of the interface, which is UTF-8.
void addText( CLI::App & command, const std::string & name, const std::string & type,
              const std::string & help, std::function< void( const std::string & ) > take ) {
   const auto checked = [name, take = std::move( take )]( const std::string & given ) {
      if ( !VeloAgent::isUtf8( given ) ) {
         throw WrongUse( fmt::format( "{}: \"{}\" is not UTF-8", name, given ) );
      }
      take( given );
   };
   command.add_option_function< std::string >( name, checked, help )->type_name( type );
}

void addVia( CLI::App & command, const std::string & prefix, std::function< FibVia &() > via,
             const std::string & group ) {
   addText( command, prefix + "next-hop", "ADDRESS", "Its next hop",
            [via]( const std::string & given ) { via().set_next_hop( given ); } );
   addNumber( command, prefix + "interface", "Its interface, as the switch numbers it", 0,
              UINT64_MAX, [via]( std::uint64_t n ) { via().set_interface_id( n ); } );
   addText( command, prefix + "labels", "N,N,...", "The MPLS labels that it pushes, the top first",
            [via, name = prefix + "labels"]( const std::string & given ) {
               std::istringstream labels( given );
               for ( std::string label; std::getline( labels, label, ',' ); ) {
                  via().add_labels(
                     static_cast< std::uint32_t >( numberFrom( name, label, 0, kMostLabel ) ) );
               }
            } );
   for ( const char * const name : { "next-hop", "interface", "labels" } ) {
      command.get_option( prefix + name )->group( group );
   }
}

} // namespace

Items< Overrides > OverrideArguments::items() const {
   if ( file.empty() != item.has_matcher() ) {
      throw WrongUse( "overrides set takes the options of one override, for example --prefix "
                      "10.0.0.0/8 --next-hop 192.0.2.1 --weight 0, or else --from FILE" );
   }
   if ( !file.empty() ) { return itemsIn< Overrides >( file ); }
   return { { Overrides::keyOf( item ), item } };
}

void addMatcherOptions( CLI::App & command, std::function< FibOverrideMatcher &() > matcher ) {
   const std::string which = "Which vias";
   addText( command, "--vrf", "NAME", "Those of this VRF (default)",
            [matcher]( const std::string & given ) { matcher().set_vrf( given ); } );
   addText( command, "--prefix", "PREFIX", "Those of the routes to this prefix (any route)",
            [matcher]( const std::string & given ) { matcher().set_prefix( given ); } );
   addText( command, "--nexthop-group", "NAME", "Those of the routes over this group (any route)",
            [matcher]( const std::string & given ) { matcher().set_nexthop_group( given ); } );
   for ( const char * const name : { "--vrf", "--prefix", "--nexthop-group" } ) {
      command.get_option( name )->group( which );
   }
   command.get_option( "--prefix" )->excludes( command.get_option( "--nexthop-group" ) );
   addVia( command, "--", [matcher]() -> FibVia & { return *matcher().mutable_via(); }, which );
}

void addOverrideOptions( CLI::App & command, OverrideArguments & arguments ) {
   FibOverride & item = arguments.item;
   addMatcherOptions( command,
                      [&item]() -> FibOverrideMatcher & { return *item.mutable_matcher(); } );
   const std::string what = "What becomes of them";
   addNumber( command, "--weight", "They have this UCMP weight; 0: they get no traffic", 0,
              UINT32_MAX,
              [&item]( std::uint64_t n ) { item.set_weight( static_cast< std::uint32_t >( n ) ); } )
      ->group( what );
   addVia( command, "--to-", [&item]() -> FibVia & { return *item.mutable_replacement(); }, what );
   command
      .add_option( "--from", arguments.file, "Those of a file, as list --format json prints it" )
      ->type_name( "FILE" );
}

} // namespace VeloCtl
