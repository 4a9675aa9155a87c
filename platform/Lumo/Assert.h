#pragma once

#include <source_location>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "Lumo/Export.h"

namespace Lumo {

/// Whether this build has the debug checks (reference counts, thread use, iterators).
#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS
constexpr bool kDebugChecks = true;
#else
constexpr bool kDebugChecks = false;
#endif

/// A broken internal invariant: what was expected and where.
struct AssertionFailure {
   std::string_view condition; ///< The source text of the condition that did not hold.
   std::string_view message;   ///< May be empty.
   std::source_location where;

   /// "FILE:LINE: FUNCTION: assertion failed: CONDITION: MESSAGE", what the default prints.
   VELO_PLATFORM_EXPORT std::string text() const;
};

/// Decides what happens when an assertion fails. Tests install one that throws
/// (ThrowingAssertionHandler.h); without one, and also when the handler returns, the text goes to
/// standard error and the process aborts. Called on the thread whose assertion failed.
class VELO_PLATFORM_EXPORT AssertionHandler {
 public:
   virtual ~AssertionHandler();
   virtual void assertionFailed( const AssertionFailure & failure ) = 0;
};

/// Installs `handler` (not owned; null for the default) and returns the one before it. Any thread.
VELO_PLATFORM_EXPORT AssertionHandler * assertionHandlerIs( AssertionHandler * handler );

namespace Impl {

/// A failed internal assertion: tells the installed handler, then ends the process.
[[noreturn]] VELO_PLATFORM_EXPORT void
vfmassert( std::string_view condition, std::string_view message, std::source_location where );

} // namespace Impl
} // namespace Lumo

/// Fatal unless `condition` holds. `LUMO_ASSERT( x && "why" )` carries the reason in the condition.
#define LUMO_ASSERT( ... )                                                                         \
   ( static_cast< bool >( __VA_ARGS__ )                                                            \
        ? void( 0 )                                                                                \
        : ::Lumo::Impl::vfmassert( #__VA_ARGS__, {}, std::source_location::current() ) )

/// Fatal unless `condition` holds, with a `{}`-formatted message that is built only on failure.
#define LUMO_FMASSERT( condition, ... )                                                            \
   ( static_cast< bool >( condition )                                                              \
        ? void( 0 )                                                                                \
        : ::Lumo::Impl::vfmassert( #condition, ::fmt::format( __VA_ARGS__ ),                       \
                                   std::source_location::current() ) )

/// `LUMO_ASSERT` for checks on hot paths: only in builds with debug checks. Elsewhere the condition
/// is compiled but not evaluated.
#if defined( VELO_DEBUG_CHECKS ) && VELO_DEBUG_CHECKS
#define LUMO_DEBUG_ASSERT( ... ) LUMO_ASSERT( __VA_ARGS__ )
#else
#define LUMO_DEBUG_ASSERT( ... )                                                                   \
   ( true ? void( 0 ) : static_cast< void >( static_cast< bool >( __VA_ARGS__ ) ) )
#endif
