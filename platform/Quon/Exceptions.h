#pragma once

#include <stdexcept>
#include <string_view>

#include "Lumo/Export.h"

/// The errors that the entity runtime raises. Each is caught by its own class or as
/// `std::exception`; `what()` says what was wrong.

namespace Quon {

/// A value outside its range.
class VELO_PLATFORM_EXPORT RangeException : public std::range_error {
 public:
   using std::range_error::range_error;
   ~RangeException() override;
};

/// A flags value with bits that its type does not have.
class VELO_PLATFORM_EXPORT DenseEnumBoolSetRangeException final : public RangeException {
 public:
   using RangeException::RangeException;
   ~DenseEnumBoolSetRangeException() override;
};

/// An entity type that does not exist, or is not that of the entity there.
class VELO_PLATFORM_EXPORT EntityTypeException final : public std::invalid_argument {
 public:
   using std::invalid_argument::invalid_argument;
   ~EntityTypeException() override;
};

/// The value of an absent optional was asked for.
class VELO_PLATFORM_EXPORT BadOptionalAccess final : public std::logic_error {
 public:
   BadOptionalAccess();
   ~BadOptionalAccess() override;
};

/// A null pointer was handed to a mutator.
class VELO_PLATFORM_EXPORT NullPointerException final : public std::invalid_argument {
 public:
   using std::invalid_argument::invalid_argument;
   ~NullPointerException() override;
};

/// An attribute that exists once was to be instantiated a second time.
class VELO_PLATFORM_EXPORT ReinstantiatingException final : public std::logic_error {
 public:
   using std::logic_error::logic_error;
   ~ReinstantiatingException() override;
};

[[noreturn]] VELO_PLATFORM_EXPORT void throwRangeException( std::string_view text );
[[noreturn]] VELO_PLATFORM_EXPORT void
throwDenseEnumBoolSetRangeException( std::string_view typeName, unsigned value, unsigned highest );
[[noreturn]] VELO_PLATFORM_EXPORT void throwEntityTypeException( std::string_view text );
[[noreturn]] VELO_PLATFORM_EXPORT void
throwMutatorArgNullPointerException( std::string_view mutator, std::string_view argument );

namespace Impl {

[[noreturn]] VELO_PLATFORM_EXPORT void throwBadOptionalAccess();
[[noreturn]] VELO_PLATFORM_EXPORT void throwMutatorReinstantiating( std::string_view attribute );

} // namespace Impl
} // namespace Quon
