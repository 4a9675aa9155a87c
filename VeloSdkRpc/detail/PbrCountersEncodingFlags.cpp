#include "VeloSdkRpc/detail/PbrCountersEncodingFlags.h"

#include <ostream>

namespace VeloSdkRpc {

PbrCountersEncodingFlags::PbrCountersEncodingFlags( std::uint8_t value ) : value_( value ) {
   constexpr unsigned kHighest = encodeLongKey_ | deleteKey_;
   if ( value > kHighest ) {
      Quon::throwDenseEnumBoolSetRangeException( kTypeName, value, kHighest );
   }
}

PbrCountersEncodingFlags::PbrCountersEncodingFlags( Quon::CharRange & text ) {
   Quon::parseText( text, *this );
}

std::ostream & operator<<( std::ostream & os, PbrCountersEncodingFlags flags ) {
   return Quon::printText( os, flags );
}

} // namespace VeloSdkRpc
