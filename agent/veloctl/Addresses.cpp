#include "agent/veloctl/Addresses.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>

namespace VeloCtl {

namespace {

struct Address {
   int family = AF_UNSPEC;
   std::array< unsigned char, 16 > bytes{};

   unsigned bits() const { return family == AF_INET ? 32 : 128; }
   std::string text() const {
      std::array< char, INET6_ADDRSTRLEN > text{};
      return ::inet_ntop( family, bytes.data(), text.data(), text.size() );
   }
};

/// Of no family if it is none.
Address addressFrom( const std::string & text ) {
   Address address;
   if ( text.find( '\0' ) != text.npos ) { return address; } // It would end there for inet_pton.
   for ( const int family : { AF_INET, AF_INET6 } ) {
      if ( ::inet_pton( family, text.c_str(), address.bytes.data() ) == 1 ) {
         address.family = family;
         break;
      }
   }
   return address;
}

} // namespace

std::string normalAddress( const std::string & text ) {
   const Address address = addressFrom( text );
   return address.family == AF_UNSPEC ? text : address.text();
}

std::string normalPrefix( const std::string & text ) {
   const std::size_t slash = text.find( '/' );
   Address address = addressFrom( text.substr( 0, slash ) );
   if ( slash == std::string::npos || address.family == AF_UNSPEC ) { return text; }
   unsigned length = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data() + slash + 1, end, length );
   if ( error != std::errc() || stop != end || length > address.bits() ) { return text; }
   for ( unsigned bit = length; bit < address.bits(); ++bit ) {
      address.bytes.at( bit / 8 ) &= static_cast< unsigned char >( ~( 0x80U >> bit % 8 ) );
   }
   return address.text() + '/' + std::to_string( length );
}

} // namespace VeloCtl
