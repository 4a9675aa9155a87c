// The JSON of libnftables.

#include "agent/nftables/NftJson.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::NftJson {
namespace {

using VeloAgent::NftJsonError;

void parse( std::string_view text ) {
   try {
      for ( const auto & [policy, classes] : VeloAgent::countersFromNftJson( text ).counters ) {
         require( !classes.empty(), "a policy map is there for its classes" );
         for ( const auto & [name, counters] : classes ) {
            require( !name.empty(), "a class has a name" );
         }
      }
   } catch ( const NftJsonError & ) {} // Refused, as it should be.
   try {
      VeloAgent::tablesFromNftJson( text );
   } catch ( const NftJsonError & ) {}
}

const Target target( "NftJson", parse );

} // namespace
} // namespace Fuzz::NftJson
