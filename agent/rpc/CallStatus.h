/// What a client is told when a call fails: the system's errors in the RPC's terms.
///
///    velo::invalid_argument_error, Quon::RangeException      INVALID_ARGUMENT
///    velo::configuration_error                               FAILED_PRECONDITION
///    velo::unsupported_error                                 UNIMPLEMENTED
///    CallRefused                                             what it says
///    anything else                                           INTERNAL
///
/// The text is that of the error.

#pragma once

#include <grpcpp/support/status.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace VeloAgent {

/// A call that cannot be served, with the status that says so. For handlers to throw.
class CallRefused : public std::runtime_error {
 public:
   CallRefused( grpc::StatusCode code, const std::string & text )
      : std::runtime_error( text ), code_( code ) {}

   grpc::StatusCode code() const { return code_; }

 private:
   grpc::StatusCode code_;
};

/// The status of the exception that is being handled, of a text that is too long to be sent its
/// beginning and its end. Only inside of a catch clause.
grpc::Status statusOfCurrentException();

/// Runs `handler` and tells how it went.
template< typename Handler >
grpc::Status statusOf( Handler && handler ) {
   try {
      std::forward< Handler >( handler )();
      return grpc::Status::OK;
   } catch ( ... ) { return statusOfCurrentException(); }
}

} // namespace VeloAgent
