#include "VeloSdkRpc/SdkErrors.h"

#include <utility>

namespace velo {

error::error( std::string message ) : message_( std::move( message ) ) {}

const char * error::what() const noexcept { return message_.c_str(); }

invalid_argument_error::invalid_argument_error( std::string message, std::string argument )
   : error( std::move( message ) ), argument_( std::move( argument ) ) {}

void invalid_argument_error::raise() const { throw invalid_argument_error( *this ); }

invalid_range_error::invalid_range_error( std::string message, std::string argument,
                                          std::uint64_t value )
   : invalid_argument_error( std::move( message ), std::move( argument ) ), value_( value ) {}

void invalid_range_error::raise() const { throw invalid_range_error( *this ); }

void configuration_error::raise() const { throw configuration_error( *this ); }

unconfigured_agent_error::unconfigured_agent_error( std::string message, std::string agent )
   : configuration_error( std::move( message ) ), agent_( std::move( agent ) ) {}

void unconfigured_agent_error::raise() const { throw unconfigured_agent_error( *this ); }

unsupported_error::unsupported_error( std::string message, std::string feature )
   : error( std::move( message ) ), feature_( std::move( feature ) ) {}

void unsupported_error::raise() const { throw unsupported_error( *this ); }

void no_scoped_lock_obtained_error::raise() const { throw no_scoped_lock_obtained_error( *this ); }

void panic( const error & problem ) {
   problem.raise();
   std::terminate(); // A class of the client's own whose raise() returns.
}

} // namespace velo
