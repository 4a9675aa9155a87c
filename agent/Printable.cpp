#include "agent/Printable.h"

#include <fmt/format.h>

namespace VeloAgent {

std::string printable( std::string_view text, char lowest ) {
   std::string result;
   for ( const char byte : text ) {
      if ( byte < lowest || byte > '~' || byte == '\\' ) {
         result += fmt::format( "\\x{:02x}", static_cast< unsigned char >( byte ) );
      } else {
         result.push_back( byte );
      }
   }
   return result;
}

} // namespace VeloAgent
