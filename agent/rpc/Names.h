/// Names in requests, checked against what an entity can hold.
///
/// Thread     any

#pragma once

#include "Quon/StringAttribute.h"
#include "agent/rpc/BadRequest.h"

#include <string>

namespace VeloAgent {

/// `name`, which may be empty. Errors: BadRequest if it is too long.
inline const std::string & boundedName( const char * field, const std::string & name ) {
   if ( name.size() > Quon::kMaxStringLength ) {
      throw BadRequest( fmt::format( "{} has {} bytes; a name has at most {}", field, name.size(),
                                     Quon::kMaxStringLength ) );
   }
   return name;
}

/// `name`. Errors: BadRequest if it is empty or too long.
inline const std::string & nameFrom( const char * field, const std::string & name ) {
   if ( name.empty() ) {
      throw BadRequest(
         fmt::format( "{} is empty; a name has 1 to {} bytes", field, Quon::kMaxStringLength ) );
   }
   return boundedName( field, name );
}

} // namespace VeloAgent
