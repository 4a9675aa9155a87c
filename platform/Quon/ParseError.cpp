#include "Quon/ParseError.h"

#include <string>

#include <fmt/format.h>

namespace Quon {
namespace {

std::string message( std::string_view path, std::size_t position, std::string_view reason ) {
   if ( path.empty() ) { return fmt::format( "position {}: {}", position, reason ); }
   return fmt::format( "attribute \"{}\", position {}: {}", path, position, reason );
}

} // namespace

ParseError::ParseError( std::string_view path, std::size_t position, std::string_view reason )
   : std::runtime_error( message( path, position, reason ) ),
     path_( path ),
     position_( position ) {}

ParseError::~ParseError() = default;

} // namespace Quon
