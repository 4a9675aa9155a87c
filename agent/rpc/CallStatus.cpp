#include "agent/rpc/CallStatus.h"

#include "Quon/Quon.h"
#include "VeloSdkRpc/SdkErrors.h"

namespace VeloAgent {

grpc::Status statusOfCurrentException() {
   using grpc::StatusCode;
   const auto status = []( StatusCode code, const std::exception & error ) {
      return grpc::Status( code, error.what() );
   };
   try {
      throw;
   } catch ( const CallRefused & refused ) {
      return status( refused.code(), refused );
   } catch ( const velo::invalid_argument_error & error ) {
      return status( StatusCode::INVALID_ARGUMENT, error );
   } catch ( const Quon::RangeException & error ) {
      return status( StatusCode::INVALID_ARGUMENT, error );
   } catch ( const velo::configuration_error & error ) {
      return status( StatusCode::FAILED_PRECONDITION, error );
   } catch ( const velo::unsupported_error & error ) {
      return status( StatusCode::UNIMPLEMENTED, error );
   } catch ( const std::exception & error ) {
      return status( StatusCode::INTERNAL, error );
   } catch ( ... ) { return { StatusCode::INTERNAL, "an error without a text" }; }
}

} // namespace VeloAgent
