#include "Ipnet/IpPrefix.h"

#include <algorithm>
#include <charconv>
#include <ostream>

#include <fmt/format.h>

#include "Quon/Exceptions.h"

namespace Ipnet {
namespace {

/// `address` with all bits behind the first `length` cleared.
IpAddr network( const IpAddr & address, unsigned length ) {
   IpAddr::Bytes bytes = address.bytes();
   for ( unsigned i = 0; i < bytes.size(); ++i ) {
      const unsigned keep = length > 8 * i ? std::min( length - 8 * i, 8U ) : 0;
      bytes[i] = static_cast< std::uint8_t >( bytes[i] & ( 0xff00U >> keep ) );
   }
   if ( address.family() == IpAddr::Family::v6 ) { return IpAddr::v6( bytes ); }
   return IpAddr::v4( std::uint32_t{ bytes[0] } << 24 | std::uint32_t{ bytes[1] } << 16 |
                      std::uint32_t{ bytes[2] } << 8 | bytes[3] );
}

[[noreturn]] void refuse( std::string_view text ) {
   Quon::throwRangeException(
      fmt::format( "{:?} is not an IP prefix; 10.0.0.0/8 and 2001:db8::/32 would be such", text ) );
}

IpPrefix parsed( std::string_view text ) {
   const std::size_t slash = text.find( '/' );
   if ( slash == std::string_view::npos ) { refuse( text ); }
   const std::string_view digits = text.substr( slash + 1 );
   unsigned length = 0;
   const char * const end = digits.data() + digits.size();
   const auto [stop, error] = std::from_chars( digits.data(), end, length );
   const bool canonical = digits == "0" || !digits.starts_with( '0' );
   if ( error != std::errc() || stop != end || !canonical ) { refuse( text ); }
   return { IpAddr( text.substr( 0, slash ) ), length };
}

} // namespace

IpPrefix::IpPrefix( const IpAddr & address, unsigned length )
   : address_( address ), length_( static_cast< std::uint8_t >( length ) ) {
   if ( length > address.bits() ) {
      Quon::throwRangeException( fmt::format( "{}/{} is longer than the {} bits of an address",
                                              address.toString(), length, address.bits() ) );
   }
   if ( const IpAddr right = network( address, length ); right != address ) {
      Quon::throwRangeException(
         fmt::format( "{}/{} has bits set behind its length; {}/{} has none", address.toString(),
                      length, right.toString(), length ) );
   }
}

IpPrefix::IpPrefix( std::string_view text ) : IpPrefix( parsed( text ) ) {}

std::string IpPrefix::toString() const {
   return fmt::format( "{}/{}", address_.toString(), length_ );
}

void IpPrefix::textIs( const Lumo::String & text ) {
   const IpPrefix prefix( text.view() );
   if ( const std::string canonical = prefix.toString(); canonical != text.view() ) {
      Quon::throwRangeException( fmt::format( "{} is written {}", text, canonical ) );
   }
   *this = prefix;
}

std::ostream & operator<<( std::ostream & os, const IpPrefix & prefix ) {
   return Quon::printText( os, prefix );
}

} // namespace Ipnet
