#pragma once

#include <cstdint>
#include <sstream>
#include <string>

#include "Quon/Quon.h"

namespace VeloSdkRpc::detail {

/// How the generated machines render a value in a trace: by its stream form; an optional as
/// "Optional( VALUE )" or "None".
template< class T >
std::string ilexPrint( const T & value ) {
   std::ostringstream os;
   os << value;
   return std::move( os ).str();
}

inline std::string ilexPrint( bool value ) { return value ? "true" : "false"; }

/// An entity by its text form, null as "None".
template< class T >
std::string ilexPrint( const Lumo::Ptr< T > & entity ) {
   std::ostringstream os;
   Quon::printText( os, entity );
   return std::move( os ).str();
}

template< class T >
std::string ilexPrint( const Quon::Optional< T > & optional ) {
   return optional ? "Optional( " + ilexPrint( *optional ) + " )" : "None";
}

} // namespace VeloSdkRpc::detail
