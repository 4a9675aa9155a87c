/// What SDK clients configure, as lists that are kept in files: the same work for link weights and
/// for overrides. A kind says which messages carry its items, what an item is known by, and how it
/// looks; see Weights.h.
///
/// The file is one JSON object, and the same as `list --format json` prints:
///
///    {"weights":[
///    {"interface_id":7,"weight":30}
///    ]}

#pragma once

#include "agent/JsonText.h"
#include "agent/veloctl/Client.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Files.h"
#include "agent/veloctl/MessageJson.h"
#include "agent/veloctl/Progress.h"
#include "agent/veloctl/Session.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace VeloCtl {

/// As many in one request; far below the size that a message may have.
inline constexpr int kItemsPerRequest = 1000;

/// By what they are known by.
template< typename Kind >
using Items = std::map< std::string, typename Kind::Item >;

/// All that the agent has.
template< typename Kind >
Items< Kind > itemsOf( Client & agent ) {
   Items< Kind > items;
   typename Kind::ListRequest request;
   do {
      auto page = agent.call< typename Kind::ListResponse >( request );
      for ( auto & item : *Kind::itemsOf( page ) ) {
         items[Kind::keyOf( item )] = Kind::normal( item );
      }
      request.set_page_token( page.next_page_token() );
   } while ( !request.page_token().empty() );
   return items;
}

/// Those of a file, which names each one once.
template< typename Kind >
Items< Kind > itemsIn( const std::string & path ) {
   typename Kind::SetRequest document;
   readJson( contentOf( path ), document, path );
   Items< Kind > items;
   int index = 0;
   for ( const auto & item : *Kind::itemsOf( document ) ) {
      if ( !items.emplace( Kind::keyOf( item ), Kind::normal( item ) ).second ) {
         throw WrongUse( fmt::format( "{}: {}[{}]: {} is there already; each may come once", path,
                                      Kind::kName, index, Kind::textOf( item ) ) );
      }
      ++index;
   }
   return items;
}

/// One request after the other, with all of `items`: `send( request )`.
template< typename Request, typename Kind, typename Send >
void inRequests( const Session & session, const Items< Kind > & items, Send send ) {
   Progress progress( session.streams, Kind::kName, items.size() );
   Request request;
   std::size_t done = 0;
   for ( const auto & [key, item] : items ) {
      *Kind::itemsOf( request )->Add() = item;
      ++done;
      if ( Kind::itemsOf( request )->size() == kItemsPerRequest || done == items.size() ) {
         send( request );
         request.Clear();
         progress.doneIs( done );
      }
   }
}

template< typename Kind >
void set( Session & session, const Items< Kind > & items ) {
   Client & agent = session.agent();
   inRequests< typename Kind::SetRequest, Kind >( session, items, [&agent]( const auto & request ) {
      agent.call< typename Kind::SetResponse >( request );
   } );
   session.line( session.json() ? fmt::format( R"({{"set":{}}})", items.size() )
                                : fmt::format( "{} set", items.size() ) );
}

/// As the file has it, with one item on each line.
template< typename Kind >
std::string documentOf( const Items< Kind > & items ) {
   std::vector< std::string > lines;
   for ( const auto & [key, item] : items ) {
      lines.push_back( VeloAgent::lineOf( jsonOf( item ) ) );
   }
   return fmt::format( "{{\"{}\":[\n{}\n]}}", Kind::kName, fmt::join( lines, ",\n" ) );
}

} // namespace VeloCtl
