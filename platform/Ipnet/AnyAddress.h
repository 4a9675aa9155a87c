#pragma once

#include <algorithm>
#include <cstdint>

#include <rapidcheck.h>

#include "Ipnet/Ipnet.h"

/// Addresses and prefixes for property tests, those with runs of zeros made likely.
namespace Ipnet::test {

inline IpAddr anyAddr() {
   if ( *rc::gen::arbitrary< bool >() ) {
      return IpAddr::v4( *rc::gen::arbitrary< std::uint32_t >() );
   }
   IpAddr::Bytes bytes;
   for ( std::size_t i = 0; i < bytes.size(); i += 2 ) {
      const bool zero = *rc::gen::arbitrary< bool >();
      bytes[i] = zero ? 0 : *rc::gen::arbitrary< std::uint8_t >();
      bytes[i + 1] = zero ? 0 : *rc::gen::arbitrary< std::uint8_t >();
   }
   return IpAddr::v6( bytes );
}

/// Any address, with as many of its first bits as it takes to have none behind.
inline IpPrefix anyPrefix() {
   const IpAddr addr = anyAddr();
   unsigned shortest = 0;
   for ( unsigned bit = 0; bit < addr.bits(); ++bit ) {
      if ( addr.bytes()[bit / 8] >> ( 7 - bit % 8 ) & 1 ) { shortest = bit + 1; }
   }
   return IpPrefix( addr, *rc::gen::inRange( shortest, addr.bits() + 1 ) );
}

} // namespace Ipnet::test
