#pragma once

#include <string_view>

#include "Lumo/Trace.h"

namespace Quon {

/// The trace handle of a source unit or class: made once, on first use.
class TraceHandle {
 public:
   /// The handle of that name; `obeyEnvironment` as in `Lumo::Platform::getDebugHandler`.
   explicit TraceHandle( std::string_view name, bool obeyEnvironment = true )
      : handle_( Lumo::Platform::getDebugHandler( name, obeyEnvironment ) ) {}

   bool enabled( int level ) const { return handle_->enabled( level ); }
   operator const Lumo::TraceHandle &() const { return *handle_; }

 private:
   Lumo::Ptr< Lumo::TraceHandle > handle_;
};

} // namespace Quon
