#include "agent/rpc/CallStatus.h"

#include "Quon/Quon.h"
#include "VeloSdkRpc/SdkErrors.h"

#include <fmt/format.h>
#include <string_view>

namespace VeloAgent {

namespace {

/// The text of a status travels among the metadata of its call, which have room for a few
/// kilobytes; beyond that a client is told of the room instead. What is wrong with a request may
/// quote it.
constexpr std::size_t kLongestText = 1'000;

/// Where a character of the UTF-8 text begins, at `at` or before.
std::size_t beginOfCharacter( std::string_view text, std::size_t at ) {
   while ( at > 0 && ( static_cast< unsigned char >( text[at] ) & 0xc0 ) == 0x80 ) { --at; }
   return at;
}

/// The beginning, which says where, and the end, which says what would be right.
std::string bounded( std::string_view text ) {
   if ( text.size() <= kLongestText ) { return std::string( text ); }
   const std::size_t half = kLongestText / 2;
   return fmt::format( "{} ... {}", text.substr( 0, beginOfCharacter( text, half ) ),
                       text.substr( beginOfCharacter( text, text.size() - half ) ) );
}

} // namespace

grpc::Status statusOfCurrentException() {
   using grpc::StatusCode;
   const auto status = []( StatusCode code, const std::exception & error ) {
      return grpc::Status( code, bounded( error.what() ) );
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
