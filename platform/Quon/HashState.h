#pragma once

#include <cstdint>
#include <type_traits>

#include "Lumo/Hash.h"
#include "Lumo/String.h"
#include "Quon/Optional.h"

namespace Quon {

/// The hash of a value of several fields: begun with a seed, fed field by field.
class HashState {
 public:
   explicit HashState( std::uint64_t seed ) : state_( seed ^ 0x9e3779b97f4a7c15 ) {}

   void mix( std::uint64_t word ) {
      state_ = Lumo::Impl::foldedMultiply( state_ ^ word, 0xd6e8feb86659fd93 );
   }

   /// Its bytes, by way of the hash that the string keeps. O(1).
   void mix( const Lumo::String & text ) { mix( text.hash() ); }

   /// A value that has a hash itself.
   template< class V >
      requires std::is_class_v< V >
   void mix( const V & value ) {
      if constexpr ( requires { value.hash( 0U ); } ) {
         mix( std::uint64_t{ value.hash( 0U ) } );
      } else {
         mix( std::uint64_t{ value.hash() } );
      }
   }

   /// A value or its absence.
   template< class V >
   void mix( const Optional< V > & optional ) {
      if ( optional ) {
         mix( *optional );
      } else {
         mix( kAbsent );
      }
   }

   std::uint64_t result() const { return state_; }

 private:
   static constexpr std::uint64_t kAbsent = 0x5851f42d4c957f2d; // just some number

   std::uint64_t state_;
};

} // namespace Quon
