#pragma once

#include <iterator>
#include <string>

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "Lumo/Trace.h"

namespace Quon {

/// A message under construction: text, numbers and everything printable, one after the other. Of a
/// disabled message nothing is formatted.
class TraceStream {
 public:
   explicit TraceStream( bool enabled ) : enabled_( enabled ) {}

   template< class T >
   TraceStream & operator<<( const T & part ) {
      if ( !enabled_ ) { return *this; }
      if constexpr ( fmt::is_formattable< T >::value ) {
         fmt::format_to( std::back_inserter( text_ ), "{}", part );
      } else {
         fmt::format_to( std::back_inserter( text_ ), "{}", fmt::streamed( part ) );
      }
      return *this;
   }

   bool enabled() const { return enabled_; }
   const std::string & text() const { return text_; }

 private:
   const bool enabled_;
   std::string text_;
};

/// A message that is built by streaming and emitted when the helper is destroyed, in general at the
/// end of the statement:
///
///    Quon::TraceHelper( handle, 8, __FILE__, __LINE__, __func__ ).stream() << "route " << key;
///
/// `handle`, `file` and `function` must outlive it.
class TraceHelper {
 public:
   TraceHelper( const Lumo::TraceHandle & handle, int level, const char * file, unsigned line,
                const char * function )
      : handle_( handle ),
        level_( level ),
        where_( file, line, function ),
        stream_( handle.enabled( level ) ) {}
   TraceHelper( const TraceHelper & ) = delete;
   TraceHelper & operator=( const TraceHelper & ) = delete;
   ~TraceHelper() {
      if ( stream_.enabled() ) { Lumo::Impl::traceEmit( handle_, level_, where_, stream_.text() ); }
   }

   TraceStream & stream() { return stream_; }

 private:
   const Lumo::TraceHandle & handle_;
   const int level_;
   const Lumo::TraceLocation where_;
   TraceStream stream_;
};

} // namespace Quon
