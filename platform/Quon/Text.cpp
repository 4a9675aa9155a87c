#include "Quon/Text.h"

#include "Quon/detail/Escape.h"

namespace Quon::Impl {

void appendEscaped( std::string & out, std::string_view bytes, char quote ) {
   constexpr std::string_view kHex = "0123456789abcdef";
   for ( const char c : bytes ) {
      const auto byte = static_cast< unsigned char >( c );
      if ( c == '\\' || c == quote ) {
         out += { '\\', c };
      } else if ( c == '\n' ) {
         out += "\\n";
      } else if ( c == '\r' ) {
         out += "\\r";
      } else if ( c == '\t' ) {
         out += "\\t";
      } else if ( c >= ' ' && c <= '~' ) {
         out += c;
      } else {
         out += { '\\', 'x', kHex[byte >> 4], kHex[byte & 15] };
      }
   }
}

void appendString( std::string & out, std::string_view bytes ) {
   out += '\'';
   appendEscaped( out, bytes, '\'' );
   out += '\'';
}

} // namespace Quon::Impl
