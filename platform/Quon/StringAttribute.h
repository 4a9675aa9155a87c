#pragma once

#include <cstddef>

#include "Lumo/String.h"
#include "Quon/Exceptions.h"

namespace Quon {

/// String attributes of entities are shared strings with a maximum length.
using String = Lumo::String;

/// The maximum length of a string attribute that states none of its own, in bytes.
inline constexpr std::size_t kMaxStringLength = 65535;

/// Returns `text` if an attribute of that length may hold it, else raises the range error.
inline const String & checkedString( const String & text,
                                     std::size_t maxLength = kMaxStringLength ) {
   if ( text.size() > maxLength ) {
      throwRangeException( "Quon::String::bytes > maxLength() not allowed" );
   }
   return text;
}

} // namespace Quon
