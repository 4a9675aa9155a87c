#include "agent/veloctl/Resync.h"

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Configured.h"
#include "agent/veloctl/Overrides.h"
#include "agent/veloctl/Weights.h"

#include <google/protobuf/util/message_differencer.h>
#include <memory>

namespace VeloCtl {

namespace {

using google::protobuf::util::MessageDifferencer;
using Json = nlohmann::ordered_json;

struct ResyncArguments {
   std::string file;
   bool dryRun = false;
};

/// What a resync to `wanted` would do to `present`.
template< typename Kind >
struct Plan {
   Plan( const Items< Kind > & present, const Items< Kind > & wanted ) {
      for ( const auto & [key, item] : present ) {
         if ( !wanted.contains( key ) ) { deleted.emplace( key, item ); }
      }
      for ( const auto & [key, item] : wanted ) {
         const auto old = present.find( key );
         const bool same = old != present.end() && MessageDifferencer::Equals( old->second, item );
         ( same ? unchanged : set ).emplace( key, item );
      }
   }

   Items< Kind > deleted;
   Items< Kind > set;
   Items< Kind > unchanged;
};

template< typename Kind >
Json jsonOfItems( const Items< Kind > & items ) {
   Json list = Json::array();
   for ( const auto & [key, item] : items ) { list.push_back( jsonOf( item ) ); }
   return list;
}

template< typename Kind >
void show( Session & session, const Plan< Kind > & plan ) {
   if ( session.json() ) {
      return session.line(
         VeloAgent::lineOf( { { "delete", jsonOfItems< Kind >( plan.deleted ) },
                              { "set", jsonOfItems< Kind >( plan.set ) },
                              { "keep", jsonOfItems< Kind >( plan.unchanged ) } } ) );
   }
   const auto lines = [&session]( const char * what, const Items< Kind > & items ) {
      for ( const auto & [key, item] : items ) {
         session.line( fmt::format( "{:<7} {}", what, Kind::textOf( item ) ) );
      }
   };
   lines( "delete", plan.deleted );
   lines( "set", plan.set );
   lines( "keep", plan.unchanged );
   session.line( fmt::format( "{} to delete, {} to set, {} to keep; nothing has been changed",
                              plan.deleted.size(), plan.set.size(), plan.unchanged.size() ) );
}

template< typename Kind >
void resync( Session & session, const ResyncArguments & arguments ) {
   const Items< Kind > wanted = itemsIn< Kind >( arguments.file );
   Client & agent = session.agent();
   if ( arguments.dryRun ) {
      return show( session, Plan< Kind >( itemsOf< Kind >( agent ), wanted ) );
   }
   typename Kind::ResyncResponse response;
   Call call( agent, typename Kind::ResyncRequest(), response );
   inRequests< typename Kind::ResyncRequest, Kind >(
      session, wanted, [&call]( const auto & request ) { call.send( request ); } );
   call.endSending();
   if ( call.next() != Call::Next::message ) {
      throw CallFailed( ExitCode::refused, "the agent answered without an answer", false );
   }
   call.next(); // How it ended counts as well.
   if ( session.json() ) { return session.jsonLine( response ); }
   session.line( fmt::format( "{} set, {} deleted", response.set(), response.deleted() ) );
}

template< typename Kind >
void add( Commands & parent, const std::string & name, const std::string & what ) {
   const auto arguments = std::make_shared< ResyncArguments >();
   CLI::App & command =
      parent.add( name, "Set the " + what + " of a file and remove all others",
                  [arguments]( Session & session ) { resync< Kind >( session, *arguments ); } );
   command
      .add_option( "--from", arguments->file,
                   "What there is to be, as list --format json prints it" )
      ->type_name( "FILE" )
      ->required();
   command.add_flag( "--dry-run", arguments->dryRun,
                     "Show what would be deleted and set, and do nothing" );
}

} // namespace

void addResync( Commands & commands ) {
   Commands group = commands.group( "resync", "Make the configuration what a file says" );
   addWeightsResync( group, "weights" );
   addOverridesResync( group, "overrides" );
}

void addWeightsResync( Commands & parent, const std::string & name ) {
   add< Weights >( parent, name, "link weights" );
}

void addOverridesResync( Commands & parent, const std::string & name ) {
   add< Overrides >( parent, name, "overrides" );
}

} // namespace VeloCtl
