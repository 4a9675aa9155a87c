#include "agent/rpc/Page.h"

#include <algorithm>
#include <random>

namespace VeloAgent {

namespace {

constexpr std::uint32_t kUsualPageSize = 1'000;
constexpr std::uint32_t kLargestPageSize = 10'000;

/// Another one in every process.
const std::string & processMark() {
   static const std::string mark = [] {
      std::random_device random;
      return fmt::format( "{:08x}{:08x}:", random(), random() );
   }();
   return mark;
}

} // namespace

std::size_t pageSizeFrom( std::uint32_t asked ) {
   return asked == 0 ? kUsualPageSize : std::min( asked, kLargestPageSize );
}

std::string pageToken( std::string_view keyText ) {
   return std::string( processMark() ).append( keyText );
}

std::string_view keyTextFrom( std::string_view pageToken ) {
   if ( !pageToken.starts_with( processMark() ) ) { refusePageToken(); }
   return pageToken.substr( processMark().size() );
}

void refusePageToken() {
   throw BadRequest( "page_token is none that this run of the agent has given out; "
                     "an empty one asks for the first page" );
}

} // namespace VeloAgent
