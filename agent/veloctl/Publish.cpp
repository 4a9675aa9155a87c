#include "agent/veloctl/Publish.h"

#include "agent/JsonText.h"
#include "agent/veloctl/Publishing.h"
#include "velo/rpc/v1/switch_state.pb.h"

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

struct Pbr {
   using Change = PbrCountersChange;
   using Request = PublishPbrCountersRequest;
   using Response = PublishPbrCountersResponse;
};

struct Mpls {
   using Change = MplsRouteChange;
   using Request = PublishMplsRoutesRequest;
   using Response = PublishMplsRoutesResponse;
};

struct NexthopGroups {
   using Change = NexthopGroupChange;
   using Request = PublishNexthopGroupsRequest;
   using Response = PublishNexthopGroupsResponse;
};

constexpr std::uint64_t kMostLabel = ( 1 << 20 ) - 1;

/// An argument that must be there.
CLI::Option * argument( CLI::App & command, const std::string & name, const std::string & help,
                        const std::function< void( const std::string & ) > & take ) {
   return command.add_option_function< std::string >( name, take, help )
      ->type_name( "" )
      ->required();
}

CLI::Option * numberArgument( CLI::App & command, const std::string & name,
                              const std::string & help, std::uint64_t most,
                              std::function< void( std::uint64_t ) > take ) {
   return addNumber( command, name, help, 0, most, std::move( take ) )->type_name( "" )->required();
}

void addPbr( Commands & publish ) {
   Commands pbr = publish.group( "pbr", "PBR counters" );

   const auto toSet = std::make_shared< PbrCountersChange >();
   auto & set =
      addChange< Pbr >( pbr, "set", "The counters of a class, which is made if need be", toSet );
   argument( set, "POLICY", "The policy map", [toSet]( const std::string & name ) {
      toSet->mutable_set_class()->set_policy( name );
   } );
   argument( set, "CLASS", "The class in it", [toSet]( const std::string & name ) {
      toSet->mutable_set_class()->set_class_name( name );
   } );
   numberArgument( set, "PACKETS", "Counted so far", UINT64_MAX,
                   [toSet]( std::uint64_t n ) { toSet->mutable_set_class()->set_packets( n ); } );
   numberArgument( set, "BYTES", "Counted so far", UINT64_MAX,
                   [toSet]( std::uint64_t n ) { toSet->mutable_set_class()->set_bytes( n ); } );

   // Without a class it is the policy map that goes.
   const auto toRemove = std::make_shared< PbrCountersChange >();
   auto & remove =
      addChange< Pbr >( pbr, "remove", "A class, or a policy map with all its classes", toRemove );
   argument( remove, "POLICY", "The policy map", [toRemove]( const std::string & name ) {
      toRemove->mutable_remove_policy()->set_policy( name );
   } );
   argument( remove, "CLASS", "The class in it (all of it)",
             [toRemove]( const std::string & name ) {
                const std::string policy = toRemove->remove_policy().policy();
                toRemove->mutable_remove_class()->set_policy( policy );
                toRemove->mutable_remove_class()->set_class_name( name );
             } )
      ->required( false );

   addFrom< Pbr >( pbr,
                   R"({"set_class":{"policy":"web","class_name":"http","packets":1,"bytes":2}},)"
                   R"( {"remove_class":{...}}, {"remove_policy":{"policy":"web"}})" );
}

/// Numbers of an acknowledgement; one that is given at all makes one.
void addAcknowledgement( CLI::App & set, const std::shared_ptr< MplsRouteChange > & change ) {
   using Acknowledgement = MplsHardwareRoute::Acknowledgement;
   const auto its = [change]() -> Acknowledgement & {
      MplsHardwareRoute & route = *change->mutable_set_route();
      if ( !route.has_acknowledgement() ) {
         route.mutable_acknowledgement()->set_route_version( 1 );
         route.mutable_acknowledgement()->set_nexthop_group_version( 1 );
      }
      return *route.mutable_acknowledgement();
   };
   const auto number = [&set]( const char * name, const char * help, std::uint64_t most,
                               std::function< void( std::uint64_t ) > take ) {
      return addNumber( set, name, help, 0, most, std::move( take ) )->group( "Acknowledged" );
   };
   CLI::Option * const group = number(
      "--group", "The next-hop group that it leads to", UINT32_MAX, [its]( std::uint64_t n ) {
         its().set_nexthop_group_id( static_cast< std::uint32_t >( n ) );
      } );
   number( "--fec", "Any other adjacency that it leads to, as the routing table numbers it",
           UINT64_MAX, [its]( std::uint64_t n ) { its().set_fec_id( n ); } )
      ->excludes( group );
   number( "--route-version", "That the hardware has (1)", UINT32_MAX, [its]( std::uint64_t n ) {
      its().set_route_version( static_cast< std::uint32_t >( n ) );
   } );
   number( "--group-version", "That the hardware has (1)", UINT32_MAX, [its]( std::uint64_t n ) {
      its().set_nexthop_group_version( static_cast< std::uint32_t >( n ) );
   } );
   number( "--ack", "How, in the hardware agent's own numbers (0)", 255,
           [its]( std::uint64_t n ) { its().set_ack( static_cast< std::uint32_t >( n ) ); } );
}

void addMpls( Commands & publish ) {
   Commands mpls = publish.group( "mpls", "MPLS routes as far as the hardware is with them" );

   const auto toSet = std::make_shared< MplsRouteChange >();
   toSet->mutable_set_route()->set_state( MplsHardwareRoute::PROGRAMMING_STATE_PROGRAMMED );
   auto & set = addChange< Mpls >( mpls, "set", "A route", toSet );
   numberArgument( set, "LABEL", "0 to 1048575", kMostLabel, [toSet]( std::uint64_t n ) {
      toSet->mutable_set_route()->set_label( static_cast< std::uint32_t >( n ) );
   } );
   set.add_flag_callback(
      "--pending",
      [toSet] {
         toSet->mutable_set_route()->set_state( MplsHardwareRoute::PROGRAMMING_STATE_PENDING );
      },
      "The hardware is not done with it (programmed)" );
   addAcknowledgement( set, toSet );

   const auto toRemove = std::make_shared< MplsRouteChange >();
   numberArgument( addChange< Mpls >( mpls, "remove", "A route", toRemove ), "LABEL",
                   "0 to 1048575", kMostLabel, [toRemove]( std::uint64_t n ) {
                      toRemove->set_remove_route( static_cast< std::uint32_t >( n ) );
                   } );

   addFrom< Mpls >( mpls, R"({"set_route":{"label":16,"state":"programmed","acknowledgement":)"
                          R"({"nexthop_group_id":7,"route_version":1,"nexthop_group_version":1}}},)"
                          R"( {"remove_route":16})" );
}

void addNexthopGroups( Commands & publish ) {
   Commands groups = publish.group( "nhg", "The names of next-hop groups" );

   const auto toSet = std::make_shared< NexthopGroupChange >();
   auto & set = addChange< NexthopGroups >( groups, "set", "The name of a group", toSet );
   numberArgument( set, "ID", "The group", UINT32_MAX, [toSet]( std::uint64_t n ) {
      toSet->set_id( static_cast< std::uint32_t >( n ) );
   } );
   argument( set, "NAME", "Its name", [toSet]( const std::string & name ) {
      if ( !VeloAgent::isUtf8( name ) ) {
         throw WrongUse( fmt::format( "NAME: \"{}\" is not UTF-8", name ) );
      }
      toSet->set_name( name );
   } );

   const auto toRemove = std::make_shared< NexthopGroupChange >();
   numberArgument( addChange< NexthopGroups >( groups, "remove", "The name of a group", toRemove ),
                   "ID", "The group", UINT32_MAX, [toRemove]( std::uint64_t n ) {
                      toRemove->set_id( static_cast< std::uint32_t >( n ) );
                   } );

   addFrom< NexthopGroups >( groups, R"({"id":7,"name":"to-spine"}, {"id":7})" );
}

} // namespace

void addPublish( Commands & commands ) {
   Commands publish =
      commands.group( "publish", "Tell the agent about the switch, in a driver's place" );
   addPbr( publish );
   addMpls( publish );
   addNexthopGroups( publish );
}

} // namespace VeloCtl
