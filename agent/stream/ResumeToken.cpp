#include "agent/stream/ResumeToken.h"

#include <cstring>
#include <random>

namespace VeloAgent {

namespace {

using Words = std::array< std::uint64_t, 3 >;

} // namespace

StreamId newStreamId() {
   std::random_device device; // The kernel's.
   std::uniform_int_distribution< std::uint64_t > word;
   return { word( device ), word( device ) };
}

std::string ResumeToken::bytes() const {
   const Words words = { stream[0], stream[1], sequence };
   std::string bytes( sizeof words, '\0' );
   std::memcpy( bytes.data(), words.data(), sizeof words );
   return bytes;
}

std::optional< ResumeToken > ResumeToken::from( std::string_view bytes ) {
   Words words;
   if ( bytes.size() != sizeof words ) { return {}; }
   std::memcpy( words.data(), bytes.data(), sizeof words );
   return ResumeToken{ .stream = { words[0], words[1] }, .sequence = words[2] };
}

} // namespace VeloAgent
