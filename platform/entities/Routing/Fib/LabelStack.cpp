#include "Routing/Fib/LabelStack.h"

#include <charconv>
#include <ostream>
#include <vector>

#include <fmt/format.h>

#include "Lumo/Assert.h"
#include "Quon/Exceptions.h"

namespace Routing::Fib {
namespace {

std::vector< std::uint32_t > parsed( std::string_view text ) {
   std::vector< std::uint32_t > labels;
   for ( std::string_view rest = text; !text.empty(); ) {
      const std::string_view digits = rest.substr( 0, rest.find( '/' ) );
      const char * const end = digits.data() + digits.size();
      std::uint32_t label = 0;
      const auto [stop, error] = std::from_chars( digits.data(), end, label );
      const bool canonical = digits == "0" || !digits.starts_with( '0' );
      if ( error != std::errc() || stop != end || !canonical ) {
         Quon::throwRangeException( fmt::format(
            "{:?} is not a label stack; 100/200, the top first, would be one", text ) );
      }
      labels.push_back( label );
      if ( digits.size() == rest.size() ) { break; }
      rest.remove_prefix( digits.size() + 1 );
   }
   return labels;
}

void check( std::uint32_t label ) {
   if ( label > LabelStack::kMaxLabel ) {
      Quon::throwRangeException( fmt::format( "{} is not an MPLS label: they go from 0 to {}",
                                              label, LabelStack::kMaxLabel ) );
   }
   if ( label == LabelStack::kImplicitNull ) {
      Quon::throwRangeException(
         fmt::format( "label {} (implicit null) is never sent; leave it out", label ) );
   }
}

} // namespace

LabelStack::LabelStack( std::span< const std::uint32_t > labels ) {
   if ( labels.size() > kMaxDepth ) {
      Quon::throwRangeException( fmt::format( "a stack has {} labels at most", kMaxDepth ) );
   }
   std::string bytes;
   for ( const std::uint32_t label : labels ) {
      check( label );
      for ( const unsigned shift : { 16U, 8U, 0U } ) {
         bytes += static_cast< char >( label >> shift & 0xff );
      }
   }
   bytes_ = bytes;
}

LabelStack::LabelStack( std::string_view text )
   : LabelStack( std::span< const std::uint32_t >( parsed( text ) ) ) {}

std::uint32_t LabelStack::label( std::size_t at ) const {
   LUMO_ASSERT( at < depth() );
   std::uint32_t label = 0;
   for ( const char byte : bytes_.view().substr( at * kBytesPerLabel, kBytesPerLabel ) ) {
      label = label << 8 | static_cast< unsigned char >( byte );
   }
   return label;
}

std::string LabelStack::toString() const {
   std::string text;
   for ( std::size_t at = 0; at < depth(); ++at ) {
      text += fmt::format( "{}{}", at == 0 ? "" : "/", label( at ) );
   }
   return text;
}

std::ostream & operator<<( std::ostream & os, const LabelStack & stack ) {
   return Quon::printText( os, stack );
}

} // namespace Routing::Fib
