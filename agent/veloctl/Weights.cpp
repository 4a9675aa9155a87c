#include "agent/veloctl/Weights.h"

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Configured.h"
#include "agent/veloctl/Resync.h"
#include "agent/veloctl/Table.h"

#include <memory>
#include <ostream>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

struct WeightArguments {
   std::vector< std::string > texts;
   std::string file;
};

Items< Weights > itemsFrom( const WeightArguments & arguments ) {
   if ( arguments.texts.empty() == arguments.file.empty() ) {
      throw WrongUse( "weights set takes INTERFACE=WEIGHT, for example 7=30, or else --from FILE" );
   }
   if ( !arguments.file.empty() ) { return itemsIn< Weights >( arguments.file ); }
   Items< Weights > items;
   for ( const std::string & text : arguments.texts ) {
      const std::size_t equals = text.find( '=' );
      if ( equals == std::string::npos ) {
         throw WrongUse( fmt::format( "\"{}\" is not INTERFACE=WEIGHT, for example 7=30", text ) );
      }
      BgpLinkWeight item;
      item.set_interface_id( numberFrom( "INTERFACE", text.substr( 0, equals ), 0, UINT64_MAX ) );
      item.set_weight( static_cast< std::uint32_t >(
         numberFrom( "WEIGHT", text.substr( equals + 1 ), 0, UINT32_MAX ) ) );
      items[Weights::keyOf( item )] = item;
   }
   return items;
}

void deleteWeights( Session & session, const std::vector< std::string > & interfaces ) {
   BgpLinkWeightsDeleteRequest request;
   for ( const std::string & interface : interfaces ) {
      request.add_interface_ids( numberFrom( "INTERFACE", interface, 0, UINT64_MAX ) );
   }
   const auto response = session.agent().call< BgpLinkWeightsDeleteResponse >( request );
   if ( session.json() ) { return session.jsonLine( response ); }
   session.line( fmt::format( "{} deleted", response.deleted() ) );
}

void listWeights( Session & session ) {
   const Items< Weights > items = itemsOf< Weights >( session.agent() );
   if ( session.json() ) { return session.line( documentOf< Weights >( items ) ); }
   Table table{ ">INTERFACE", ">WEIGHT" };
   for ( const auto & [key, item] : items ) {
      table.row( { fmt::format( "{}", item.interface_id() ), fmt::format( "{}", item.weight() ) } );
   }
   table.print( session.streams.out );
}

} // namespace

std::string Weights::keyOf( const Item & item ) {
   return fmt::format( "{:020}", item.interface_id() );
}

std::string Weights::textOf( const Item & item ) {
   return fmt::format( "interface {} weight {}", item.interface_id(), item.weight() );
}

void addWeights( Commands & commands ) {
   Commands weights = commands.group( "weights", "The BGP link weights of interfaces" );

   const auto toSet = std::make_shared< WeightArguments >();
   CLI::App & setCommand =
      weights.add( "set", "Add or replace weights", [toSet]( Session & session ) {
         set< Weights >( session, itemsFrom( *toSet ) );
      } );
   setCommand.add_option( "INTERFACE=WEIGHT", toSet->texts, "For example 7=30" )->type_name( "" );
   setCommand
      .add_option( "--from", toSet->file, "Those of a file, as list --format json prints it" )
      ->type_name( "FILE" );

   const auto toDelete = std::make_shared< std::vector< std::string > >();
   weights
      .add( "delete", "Remove the weights of interfaces",
            [toDelete]( Session & session ) { deleteWeights( session, *toDelete ); } )
      .add_option( "INTERFACE", *toDelete, "As the switch numbers them" )
      ->type_name( "" )
      ->required();

   weights.add( "list", "All weights", listWeights );
   addWeightsResync( weights, "resync" );
}

} // namespace VeloCtl
