/// A request with something in it that means nothing.
///
///    convertedEach( "weights", request.weights(), weightFrom )
///
///    INVALID_ARGUMENT  "weights[3]: label 3 (implicit null) is never sent; leave it out"
///
/// Thread     any

#pragma once

#include "Quon/Quon.h"
#include "agent/rpc/CallStatus.h"

#include <cstddef>
#include <fmt/format.h>
#include <string>
#include <vector>

namespace VeloAgent {

/// The text says what is wrong and what would be right.
class BadRequest final : public CallRefused {
 public:
   explicit BadRequest( const std::string & text )
      : CallRefused( grpc::StatusCode::INVALID_ARGUMENT, text ) {}
};

/// Does `work`; what it refuses is told with `where` in front.
template< typename Where, typename Work >
auto refusingAt( const Where & where, const Work & work ) {
   try {
      return work();
   } catch ( const BadRequest & error ) {
      throw BadRequest( fmt::format( "{}: {}", where(), error.what() ) );
   } catch ( const Quon::RangeException & error ) {
      throw BadRequest( fmt::format( "{}: {}", where(), error.what() ) );
   }
}

/// `convert( element )` of every element, in order. Errors: BadRequest with the place.
template< typename Elements, typename Convert >
auto convertedEach( const char * field, const Elements & elements, const Convert & convert ) {
   std::vector< decltype( convert( *elements.begin() ) ) > all;
   all.reserve( static_cast< std::size_t >( elements.size() ) );
   const auto where = [&] { return fmt::format( "{}[{}]", field, all.size() ); };
   for ( const auto & element : elements ) {
      all.push_back( refusingAt( where, [&] { return convert( element ); } ) );
   }
   return all;
}

} // namespace VeloAgent
