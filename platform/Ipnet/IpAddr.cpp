#include "Ipnet/IpAddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <ostream>

#include <fmt/format.h>

#include "Quon/Exceptions.h"

namespace Ipnet {

IpAddr::IpAddr( std::string_view text ) {
   // Terminated for inet_pton. No address is longer than the buffer; what has a zero byte in it is
   // none.
   char terminated[INET6_ADDRSTRLEN] = {};
   const bool fits =
      text.size() < sizeof( terminated ) && text.find( '\0' ) == std::string_view::npos;
   if ( fits ) { std::copy( text.begin(), text.end(), terminated ); }
   if ( fits && ::inet_pton( AF_INET, terminated, bytes_.data() ) == 1 ) { return; }
   if ( fits && ::inet_pton( AF_INET6, terminated, bytes_.data() ) == 1 ) {
      family_ = Family::v6;
      return;
   }
   Quon::throwRangeException(
      fmt::format( "{:?} is not an IP address; 192.0.2.1 and 2001:db8::1 would be such", text ) );
}

IpAddr IpAddr::v4( std::uint32_t number ) {
   Bytes bytes{};
   for ( unsigned i = 0; i < 4; ++i ) {
      bytes[i] = static_cast< std::uint8_t >( number >> ( 24 - 8 * i ) );
   }
   return { Family::v4, bytes };
}

IpAddr IpAddr::v6( const Bytes & bytes ) { return { Family::v6, bytes }; }

bool IpAddr::isUnspecified() const { return words() == Words{ 0, 0 }; }

bool IpAddr::isMulticast() const {
   return family_ == Family::v4 ? ( bytes_[0] & 0xf0 ) == 0xe0 : bytes_[0] == 0xff;
}

bool IpAddr::isLinkLocal() const {
   return family_ == Family::v4 ? bytes_[0] == 169 && bytes_[1] == 254
                                : bytes_[0] == 0xfe && ( bytes_[1] & 0xc0 ) == 0x80;
}

std::string IpAddr::toString() const {
   char text[INET6_ADDRSTRLEN];
   const int family = family_ == Family::v4 ? AF_INET : AF_INET6;
   return ::inet_ntop( family, bytes_.data(), text, sizeof( text ) );
}

void IpAddr::textIs( const Lumo::String & text ) {
   const IpAddr addr( text.view() );
   if ( const std::string canonical = addr.toString(); canonical != text.view() ) {
      Quon::throwRangeException( fmt::format( "{} is written {}", text, canonical ) );
   }
   *this = addr;
}

std::ostream & operator<<( std::ostream & os, const IpAddr & addr ) {
   return Quon::printText( os, addr );
}

} // namespace Ipnet
