#include "Ivx/SmControl.h"

namespace Ivx {

SmControl::SmControl() = default;

SmControl::SmControl( Lumo::Ptr< Oru::TaskScheduler > scheduler, Oru::TaskPriority priority,
                      Lumo::String traceHandleName, std::uint8_t synchronousChoice )
   : scheduler_( std::move( scheduler ) ),
     priority_( priority ),
     synchronousChoice_( synchronousChoice ),
     traceHandleName_( std::move( traceHandleName ) ) {}

void SmControl::qtHandleIs( Zaptrace::TraceHandle * handle ) {
   qtHandle_ = Lumo::Ptr< Zaptrace::TraceHandle >( handle );
}

Lumo::Ptr< Zaptrace::TraceHandle > SmControl::traceHandle() const {
   if ( qtHandle_ ) { return qtHandle_; }
   return Lumo::Platform::getDebugHandler( traceHandleName_.empty() ? std::string_view( "Ivx" )
                                                                    : traceHandleName_.view() );
}

} // namespace Ivx
