/// A request with something in it that means nothing.
///
///    convertedEach( "overrides", request.overrides(), overrideFrom )
///
///    INVALID_ARGUMENT  "overrides[3]: label 3 (implicit null) is never sent; leave it out"
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

/// Does `work`; what it refuses is told with `where()` in front.
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
template< typename Work >
auto refusingAt( const char * where, const Work & work ) {
   return refusingAt( [where] { return where; }, work );
}

/// What is done in one turn of the loop, of one message.
constexpr int kMostElements = 10'000;

/// Errors: BadRequest for more than that.
template< typename Elements >
const Elements & boundedElements( const char * field, const Elements & elements ) {
   if ( elements.size() > kMostElements ) {
      throw BadRequest( fmt::format( "{} has {} elements; a message has at most {}", field,
                                     elements.size(), kMostElements ) );
   }
   return elements;
}

/// `work( element )` for every element, in order. Errors: BadRequest with the place.
template< typename Elements, typename Work >
void forEach( const char * field, const Elements & elements, const Work & work ) {
   std::size_t at = 0;
   const auto where = [&] { return fmt::format( "{}[{}]", field, at ); };
   for ( const auto & element : elements ) {
      refusingAt( where, [&] { work( element ); } );
      ++at;
   }
}

/// `convert( element )` of every element, in order. Errors: BadRequest with the place.
template< typename Elements, typename Convert >
auto convertedEach( const char * field, const Elements & elements, const Convert & convert ) {
   std::vector< decltype( convert( *elements.begin() ) ) > all;
   all.reserve( static_cast< std::size_t >( elements.size() ) );
   forEach( field, elements, [&]( const auto & element ) { all.push_back( convert( element ) ); } );
   return all;
}

} // namespace VeloAgent
