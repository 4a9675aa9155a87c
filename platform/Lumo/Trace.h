#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Lumo/Assert.h"
#include "Lumo/Export.h"
#include "Lumo/Node.h"
#include "Lumo/Ptr.h"

/// Tracing: named handles, levels 0 to 31, one installable sink.
///
/// A disabled message costs one load and one branch: `LUMO_TRACE` looks at the handle's level mask
/// before it touches its arguments. Levels are switched per handle at run time, by
/// `traceLevelsIs` or, before a handle is first used, by the environment:
///
///    VELO_TRACE="PbrCountersBacklog/7-8,Ivx/9,*/6"
///
/// Items of one name add up; `*` is for the names that have no item of their own. An item that
/// cannot be read is told on standard error and ignored.
///
/// Thread     handles and levels: any; the sink is installed while nobody else traces

namespace Lumo {

constexpr int kLastTraceLevel = 31;

/// A named switch board of trace levels. Everybody who asks `getDebugHandler` for a name shares it.
class VELO_PLATFORM_EXPORT TraceHandle final : public Node {
 public:
   explicit TraceHandle( std::string_view name ) : name_( name ) {}

   const std::string & name() const { return name_; }
   bool enabled( int level ) const {
      LUMO_DEBUG_ASSERT( 0 <= level && level <= kLastTraceLevel );
      return ( levels_.load( std::memory_order_relaxed ) >> level ) & 1;
   }

   /// Bit n enables level n. Any thread.
   void levelsIs( std::uint32_t mask ) { levels_.store( mask, std::memory_order_relaxed ); }
   std::uint32_t levels() const { return levels_.load( std::memory_order_relaxed ); }

 private:
   const std::string name_;
   std::atomic< std::uint32_t > levels_{ 0 };
};

/// Sets the level mask of the handle called `name`, existing or still to come; "*" means all. The
/// last call wins, also over the environment. Any thread.
VELO_PLATFORM_EXPORT void traceLevelsIs( std::string_view name, std::uint32_t mask );

/// Remembers the levels of all handles and puts them back at its end; for tests.
class VELO_PLATFORM_EXPORT TraceLevelsScope {
 public:
   TraceLevelsScope();
   ~TraceLevelsScope();
   TraceLevelsScope( const TraceLevelsScope & ) = delete;
   TraceLevelsScope & operator=( const TraceLevelsScope & ) = delete;

 private:
   struct Saved;
   std::unique_ptr< Saved > saved_;
};

/// The mask with the bits of levels `first` to `last`.
constexpr std::uint32_t traceLevels( int first, int last ) {
   LUMO_ASSERT( 0 <= first && first <= last && last <= kLastTraceLevel );
   return ( 2U << last ) - ( 1U << first );
}
constexpr std::uint32_t traceLevels( int only ) { return traceLevels( only, only ); }

/// Where a message was traced.
class TraceLocation {
 public:
   TraceLocation( const char * file, unsigned line, const char * function )
      : file_( file ), line_( line ), function_( function ) {}
   TraceLocation( std::source_location where )
      : TraceLocation( where.file_name(), where.line(), where.function_name() ) {}

   const char * file_name() const { return file_; }
   unsigned line() const { return line_; }
   const char * function_name() const { return function_; }

 private:
   const char * file_;
   unsigned line_;
   const char * function_;
};

/// One emitted message. The views live until the sink returns.
struct TraceRecord {
   std::string_view handle;
   int level;
   TraceLocation where;
   std::string_view text;
};

/// Where messages go. Called on the thread that traces; must not trace itself.
class VELO_PLATFORM_EXPORT TraceSink {
 public:
   virtual ~TraceSink();
   virtual void emit( const TraceRecord & record ) = 0;
};

/// Installs `sink` (not owned; null for the default, which writes lines to standard error) and
/// returns the one before it.
VELO_PLATFORM_EXPORT TraceSink * traceSinkIs( TraceSink * sink );

namespace Platform {

/// The handle of that name, created on first use. With `obeyEnvironment` a new handle starts with
/// the levels that VELO_TRACE gives it, else with none. Any thread.
VELO_PLATFORM_EXPORT Ptr< TraceHandle > getDebugHandler( std::string_view name,
                                                         bool obeyEnvironment = true );

} // namespace Platform

namespace Impl {

VELO_PLATFORM_EXPORT void traceEmit( const TraceHandle & handle, int level, TraceLocation where,
                                     std::string_view text );

} // namespace Impl

/// Emits a `{}`-formatted message if `level` is enabled.
template< class... Args >
void fmtrace( const TraceHandle & handle, int level, std::source_location where,
              fmt::format_string< Args... > format, Args &&... args ) {
   if ( !handle.enabled( level ) ) { return; }
   Impl::traceEmit( handle, level, where, fmt::format( format, std::forward< Args >( args )... ) );
}

} // namespace Lumo

/// `fmtrace` from here, with its arguments evaluated only if `level` is enabled; by code that is
/// kept out of the way of what goes on when it is not.
#define LUMO_TRACE( handle, level, ... )                                                           \
   do {                                                                                            \
      const auto & lumoTraceHandle = ( handle );                                                   \
      if ( lumoTraceHandle.enabled( level ) ) [[unlikely]] {                                       \
         constexpr auto lumoTraceWhere = std::source_location::current();                          \
         [&]() __attribute__( ( noinline, cold ) ) {                                               \
            ::Lumo::fmtrace( lumoTraceHandle, level, lumoTraceWhere, __VA_ARGS__ );                \
         }();                                                                                      \
      }                                                                                            \
   } while ( false )
