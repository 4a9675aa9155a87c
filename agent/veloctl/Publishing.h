/// Sends changes of the south side to the agent, many at a time. A kind says which messages carry
/// them.

#pragma once

#include "agent/veloctl/Client.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Files.h"
#include "agent/veloctl/MessageJson.h"
#include "agent/veloctl/Progress.h"
#include "agent/veloctl/Session.h"

#include <fmt/format.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace VeloCtl {

inline constexpr std::size_t kChangesPerRequest = 1000;

/// In their order.
template< typename Kind >
void publish( Session & session, const std::vector< typename Kind::Change > & changes ) {
   Progress progress( session.streams, "published", changes.size() );
   typename Kind::Request request;
   std::size_t done = 0;
   for ( const auto & change : changes ) {
      *request.add_changes() = change;
      ++done;
      if ( done % kChangesPerRequest == 0 || done == changes.size() ) {
         session.agent().call< typename Kind::Response >( request );
         request.Clear();
         progress.doneIs( done );
      }
   }
   session.line( session.json() ? fmt::format( R"({{"published":{}}})", changes.size() )
                                : fmt::format( "{} published", changes.size() ) );
}

/// The changes of a file, one JSON object on each line. All of it is read before anything is
/// published.
template< typename Kind >
std::vector< typename Kind::Change > changesIn( const std::string & path ) {
   std::vector< typename Kind::Change > changes;
   std::istringstream lines( contentOf( path ) );
   std::size_t number = 0;
   for ( std::string line; std::getline( lines, line ); ) {
      ++number;
      if ( line.empty() ) { continue; }
      const std::string where = fmt::format( "{}, line {}", path, number );
      readJson( line, changes.emplace_back(), where );
   }
   return changes;
}

/// Every kind has it.
template< typename Kind >
void addFrom( Commands & group, const std::string & example ) {
   const auto file = std::make_shared< std::string >();
   group
      .add(
         "from", "The changes of a file, one JSON object on each line: " + example,
         [file]( Session & session ) { publish< Kind >( session, changesIn< Kind >( *file ) ); } )
      .add_option( "FILE", *file, "- is standard input" )
      ->type_name( "" )
      ->required();
}

/// A command that publishes the one change that its arguments, still to be added, put together.
template< typename Kind >
CLI::App & addChange( Commands & group, const std::string & name, const std::string & help,
                      std::shared_ptr< typename Kind::Change > change ) {
   return group.add( name, help,
                     [change]( Session & session ) { publish< Kind >( session, { *change } ); } );
}

} // namespace VeloCtl
