// Between libFuzzer, which has the `main`, and the one target that is linked with this.

#include <cstddef>
#include <cstdint>

#include "tests/fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   const auto & targets = Fuzz::Target::all();
   Fuzz::require( targets.size() == 1, "a fuzzer has one target" );
   targets.front()->run( { reinterpret_cast< const char * >( data ), size } );
   return 0;
}
