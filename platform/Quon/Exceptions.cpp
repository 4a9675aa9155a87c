#include "Quon/Exceptions.h"

#include <string>

#include <fmt/format.h>

namespace Quon {

RangeException::~RangeException() = default;
DenseEnumBoolSetRangeException::~DenseEnumBoolSetRangeException() = default;
EntityTypeException::~EntityTypeException() = default;
BadOptionalAccess::BadOptionalAccess() : std::logic_error( "bad optional access" ) {}
BadOptionalAccess::~BadOptionalAccess() = default;
NullPointerException::~NullPointerException() = default;
ReinstantiatingException::~ReinstantiatingException() = default;

void throwRangeException( std::string_view text ) { throw RangeException( std::string( text ) ); }

void throwDenseEnumBoolSetRangeException( std::string_view typeName, unsigned value,
                                          unsigned highest ) {
   throw DenseEnumBoolSetRangeException(
      fmt::format( "{}: value {} is outside the range 0 to {}", typeName, value, highest ) );
}

void throwEntityTypeException( std::string_view text ) {
   throw EntityTypeException( std::string( text ) );
}

void throwMutatorArgNullPointerException( std::string_view mutator, std::string_view argument ) {
   throw NullPointerException(
      fmt::format( "{}: argument \"{}\" must not be null", mutator, argument ) );
}

void Impl::throwBadOptionalAccess() { throw BadOptionalAccess(); }

void Impl::throwMutatorReinstantiating( std::string_view attribute ) {
   throw ReinstantiatingException(
      fmt::format( "{}: already instantiated for another entity", attribute ) );
}

} // namespace Quon
