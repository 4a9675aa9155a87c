/// Lists of keyed collections, page by page.
///
///    page 1      page 2      page 3
///    a b c d     e f g h     i j          in the collection's own order
///            └─ token "e"  └─ token "i"
///
/// A key alone says where to go on: the place of a key in the order depends on nothing but the key,
/// be it there or not. So what changes between two pages can neither hide what was there all the
/// while nor show it twice. The order is this process's own; tokens of another are refused.
///
/// Thread     event loop only

#pragma once

#include "Quon/Quon.h"
#include "agent/rpc/BadRequest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace VeloAgent {

/// A page of elements that are large themselves ends earlier, when it has about so many bytes.
constexpr std::size_t kPageBytes = 1'000'000;

/// How many elements a page has whose size was asked for as `asked`.
std::size_t pageSizeFrom( std::uint32_t asked );

std::string pageToken( std::string_view keyText );
/// Errors: BadRequest for what is no token of this process, as refusePageToken.
std::string_view keyTextFrom( std::string_view pageToken );
[[noreturn]] void refusePageToken();

template< typename Key >
Key keyFrom( std::string_view pageToken ) {
   const std::string_view text = keyTextFrom( pageToken );
   try {
      return Quon::fromText< Key >( text );
   } catch ( const Quon::ParseError & ) { refusePageToken(); }
}

/// Fills `response` with the page that `request` asks for: `append( element )` adds an element to
/// it and returns the message that it has become.
template< typename Members, typename Request, typename Response, typename Append >
void listPage( const Members & members, const Request & request, Response & response,
               const Append & append ) {
   using Key = typename Members::Key;
   auto at = request.page_token().empty()
                ? members.checkedIterator()
                : members.checkedIteratorFrom( keyFrom< Key >( request.page_token() ) );
   std::size_t bytes = 0;
   for ( std::size_t left = pageSizeFrom( request.page_size() );
         at && left > 0 && bytes < kPageBytes; ++at, --left ) {
      bytes += append( *at ).ByteSizeLong();
   }
   if ( at ) { response.set_next_page_token( pageToken( Quon::text( at->fwkKey() ) ) ); }
}

} // namespace VeloAgent
