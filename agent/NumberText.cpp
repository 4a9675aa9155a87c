#include "agent/NumberText.h"

#include <charconv>

namespace VeloAgent {

std::optional< std::uint64_t > numberFrom( std::string_view text, std::uint64_t least,
                                           std::uint64_t most ) {
   std::uint64_t number = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, number );
   if ( error != std::errc() || stop != end || number < least || number > most ) {
      return std::nullopt;
   }
   return number;
}

} // namespace VeloAgent
